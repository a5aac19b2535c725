#include "system/InstallLayout.h"

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
    // An installation always has <prefix>/libexec/vantrel (the service-control substitute lives
    // there); a build tree has no such folder and keeps every program beside the application.
    const QString libexec =
        QDir::cleanPath(directory.filePath(QStringLiteral("../libexec/vantrel")));
    if (directory.dirName() == QLatin1String("bin") && QFileInfo(libexec).isDir()) {
        return libexec + QLatin1Char('/') + name;
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
