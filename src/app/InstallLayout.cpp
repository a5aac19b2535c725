#include "app/InstallLayout.h"

#include <QDir>
#include <QFileInfo>

namespace {

std::optional<QString> nonEmpty(const char* text) {
    const QString value = QString::fromUtf8(text);
    return value.isEmpty() ? std::nullopt : std::optional(value);
}

} // namespace

InstallLayout::InstallLayout(QString applicationDirectory)
    : m_applicationDirectory(std::move(applicationDirectory)) {}

QString InstallLayout::expectedProgramPath(const QString& name) const {
    const QDir directory(m_applicationDirectory);
    if (directory.dirName() == QLatin1String("bin")) {
        const QString installed = QDir::cleanPath(
            directory.filePath(QStringLiteral("../libexec/vantrel/")) + QLatin1Char('/') + name);
        // A build tree's output folder may also be called "bin"; there the program sits beside
        // the application.
        if (!QFileInfo::exists(directory.filePath(name)) || QFileInfo::exists(installed)) {
            return installed;
        }
    }
    return directory.filePath(name);
}

std::optional<QString> InstallLayout::programPath(const QString& name) const {
    const QFileInfo program(expectedProgramPath(name));
    if (program.isFile() && program.isExecutable()) {
        return program.filePath();
    }
    return std::nullopt;
}

std::optional<QString> InstallLayout::helperExecutablePath() const {
    return programPath(QStringLiteral("vantrel-tracker"));
}

QString InstallLayout::expectedHelperPath() const {
    return expectedProgramPath(QStringLiteral("vantrel-tracker"));
}

std::optional<QString> InstallLayout::shortVersion() const {
#ifdef VANTREL_VERSION
    return nonEmpty(VANTREL_VERSION);
#else
    return std::nullopt;
#endif
}

std::optional<QString> InstallLayout::buildVersion() const {
#ifdef VANTREL_BUILD_NUMBER
    return nonEmpty(VANTREL_BUILD_NUMBER);
#else
    return std::nullopt;
#endif
}
