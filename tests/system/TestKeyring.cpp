#include "TestKeyring.h"

#include <QProcess>
#include <QProcessEnvironment>

#include <gio/gio.h>
#include <stdexcept>

namespace {

const char* const secretsName = "org.freedesktop.secrets";
const char* const secretsPath = "/org/freedesktop/secrets";

void check(GError* error, const char* what) {
    if (error != nullptr) {
        const std::string message = std::string(what) + ": " + error->message;
        g_error_free(error);
        throw std::runtime_error(message);
    }
}

GDBusConnection* sessionBus() {
    GError* error = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
    check(error, "session bus");
    return bus;
}

// Calls a method on the keyring daemon and returns its reply (owned by the caller).
GVariant* callKeyring(GDBusConnection* bus, const char* interface, const char* method,
                      GVariant* arguments) {
    GError* error = nullptr;
    GVariant* reply =
        g_dbus_connection_call_sync(bus, secretsName, secretsPath, interface, method, arguments,
                                    nullptr, G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, &error);
    check(error, method);
    return reply;
}

std::string defaultCollectionPath(GDBusConnection* bus) {
    GVariant* reply = callKeyring(bus, "org.freedesktop.Secret.Service", "ReadAlias",
                                  g_variant_new("(s)", "default"));
    const gchar* path = nullptr;
    g_variant_get(reply, "(&o)", &path);
    std::string result = path;
    g_variant_unref(reply);
    if (result == "/") {
        throw std::runtime_error("the keyring has no default collection");
    }
    return result;
}

} // namespace

TestKeyring::TestKeyring(QString service, QString account)
    : m_service(std::move(service))
    , m_account(std::move(account)) {
    // Outside the private keyring these tests would clear the developer's own key.
    if (qEnvironmentVariableIsEmpty("VANTREL_TEST_KEYRING_PASSWORD")) {
        throw std::runtime_error("not inside a private keyring; run under "
                                 "tests/scripts/with-keyring.sh");
    }
}

QByteArray TestKeyring::secretTool(const QStringList& arguments, const QByteArray& input,
                                   int* exitCode) const {
    QProcess process;
    process.start(QStringLiteral("secret-tool"), arguments);
    if (!process.waitForStarted()) {
        throw std::runtime_error("secret-tool did not start");
    }
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit) {
        process.kill();
        throw std::runtime_error("secret-tool did not finish");
    }
    if (exitCode != nullptr) {
        *exitCode = process.exitCode();
    } else if (process.exitCode() != 0) {
        throw std::runtime_error("secret-tool " + arguments.join(' ').toStdString() +
                                 " failed: " + process.readAllStandardError().toStdString());
    }
    return process.readAllStandardOutput();
}

QList<QByteArray> TestKeyring::secrets() const {
    const QByteArray listing =
        secretTool({"search", "--all", "service", m_service, "account", m_account});
    // One block per item: a "[path]" line, then "key = value" lines; the secret line is missing
    // when the secret is not text.
    QList<QByteArray> result;
    for (const QByteArray& line : listing.split('\n')) {
        if (line.startsWith('[')) {
            result.append(QByteArray());
        } else if (line.startsWith("secret = ") && !result.isEmpty()) {
            result.last() = line.mid(9);
        }
    }
    return result;
}

std::optional<QByteArray> TestKeyring::lookup() const {
    int exitCode = 0;
    const QByteArray secret =
        secretTool({"lookup", "service", m_service, "account", m_account}, {}, &exitCode);
    if (exitCode != 0) {
        return std::nullopt;
    }
    return secret;
}

void TestKeyring::storeForeignItem(const QByteArray& secret,
                                   const QStringList& extraAttributes) const {
    secretTool(QStringList{"store", "--label=Stored by another client", "service", m_service,
                           "account", m_account} +
                   extraAttributes,
               secret);
}

void TestKeyring::clear() const {
    int exitCode = 0;
    secretTool({"clear", "service", m_service, "account", m_account}, {}, &exitCode);
}

void TestKeyring::lockDefaultCollection() {
    GDBusConnection* bus = sessionBus();
    const std::string collection = defaultCollectionPath(bus);
    const gchar* paths[] = {collection.c_str()};
    g_variant_unref(callKeyring(bus, "org.freedesktop.Secret.Service", "Lock",
                                g_variant_new("(@ao)", g_variant_new_objv(paths, 1))));
    g_object_unref(bus);
}

void TestKeyring::unlockDefaultCollection() {
    const QByteArray password = qgetenv("VANTREL_TEST_KEYRING_PASSWORD");
    GDBusConnection* bus = sessionBus();
    const std::string collection = defaultCollectionPath(bus);
    // A "plain" session carries the password unencrypted, which is fine on a private bus.
    GVariant* opened = callKeyring(bus, "org.freedesktop.Secret.Service", "OpenSession",
                                   g_variant_new("(sv)", "plain", g_variant_new_string("")));
    GVariant* output = nullptr;
    const gchar* session = nullptr;
    g_variant_get(opened, "(v&o)", &output, &session);
    GVariant* secret = g_variant_new(
        "(o@ay@ays)", session, g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, "", 0, 1),
        g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, password.constData(),
                                  static_cast<gsize>(password.size()), 1),
        "text/plain");
    g_variant_unref(callKeyring(bus, "org.gnome.keyring.InternalUnsupportedGuiltRiddenInterface",
                                "UnlockWithMasterPassword",
                                g_variant_new("(o@(oayays))", collection.c_str(), secret)));
    g_variant_unref(output);
    g_variant_unref(opened);
    g_object_unref(bus);
}
