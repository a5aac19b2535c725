#include "ui/QClipboardWriter.h"

#include <QClipboard>
#include <QGuiApplication>

void QClipboardWriter::setText(const QString& text) {
    QClipboard* clipboard = QGuiApplication::clipboard();
    clipboard->clear();
    clipboard->setText(text, QClipboard::Clipboard);
}
