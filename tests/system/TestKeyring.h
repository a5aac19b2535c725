#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// The private keyring that tests/scripts/with-keyring.sh starts, seen and changed through clients
// other than the store under test: secret-tool for items, the keyring's D-Bus interface for
// locking. A store bug cannot hide behind the same bug in the code that checks it.
class TestKeyring {
public:
    // Throws outside with-keyring.sh, before anything touches a keyring.
    TestKeyring(QString service, QString account);

    // The secret of every item carrying the pair, as secret-tool search --all lists them.
    QList<QByteArray> secrets() const;
    // The raw bytes of one matching item, or nothing when there is none.
    std::optional<QByteArray> lookup() const;
    // An item created the way another client would: no schema name, possibly extra attributes.
    void storeForeignItem(const QByteArray& secret, const QStringList& extraAttributes = {}) const;
    void clear() const;

    static void lockDefaultCollection();
    // Needs the keyring password that with-keyring.sh exports; no prompt is involved.
    static void unlockDefaultCollection();

private:
    QByteArray secretTool(const QStringList& arguments, const QByteArray& input = {},
                          int* exitCode = nullptr) const;

    QString m_service;
    QString m_account;
};
