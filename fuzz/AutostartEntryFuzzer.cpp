#include "FuzzProperty.h"
#include "system/AutostartEntry.h"
#include "system/XdgAutostartLoginItemManager.h"

// Input: an existing entry file, also taken as an install path for an entry of our own.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    const QByteArray contents(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const AutostartEntry entry = AutostartEntry::read(contents);

    QByteArray crlf = contents;
    crlf.replace("\n", "\r\n");
    require(AutostartEntry::read(crlf) == entry, "CR LF line ends read like LF");
    require(AutostartEntry::read(contents + "\n[Desktop Action Other]\nHidden=true\nExec=x\n" +
                                 AutostartEntry::markerKey.toUtf8() + "=false\n") == entry,
            "keys of other groups change nothing");

    // Whatever the path, the entry we write reads back as ours, switched on and starting it.
    const QString path = QString::fromUtf8(contents);
    const XdgAutostartLoginItemManager manager(QStringLiteral("/nonexistent"), path);
    const AutostartEntry ours = AutostartEntry::read(manager.entryContents());
    require(ours.registered(), "our own entry counts as registered");
    require(ours.exec == XdgAutostartLoginItemManager::execValue(path),
            "our own entry starts the executable it was written for");
    const AutostartEntry hidden = AutostartEntry::read(manager.entryContents() + "Hidden=true\n");
    require(hidden.ours && !hidden.registered(), "hiding our entry switches it off");
    return 0;
}
