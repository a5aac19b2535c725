#include "support/AppFakes.h"

#include <gtest/gtest.h>
