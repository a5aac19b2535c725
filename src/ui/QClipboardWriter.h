#pragma once

#include "app/ClipboardWriting.h"

// The desktop clipboard through QClipboard.
class QClipboardWriter : public ClipboardWriting {
public:
    void setText(const QString& text) override;
};
