#include "ui/QClipboardWriter.h"

#include <QClipboard>
#include <QGuiApplication>

void QClipboardWriter::setText(const QString& text) {
    // Replaces every format at once; clearing first would show clipboard managers an empty
    // clipboard in between.
    QGuiApplication::clipboard()->setText(text, QClipboard::Clipboard);
}
