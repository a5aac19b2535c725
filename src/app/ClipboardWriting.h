#pragma once

#include <QString>

class ClipboardWriting {
public:
    virtual ~ClipboardWriting() = default;
    // Replaces the clipboard's contents with `text` as plain text.
    virtual void setText(const QString& text) = 0;
};
