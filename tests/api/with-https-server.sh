#!/usr/bin/env bash
# Runs a test executable beside a scriptable HTTPS server on 127.0.0.1 whose certificates come
# from authorities made for this run only; https_test_server.py says what the executable finds
# under VANTREL_TEST_HTTPS_DIR and how to script the answers.
exec python3 "$(dirname "$0")/https_test_server.py" "$@"
