#pragma once

#include <QString>
#include <QStringList>

// Where the local tracker keeps its files under a home directory. Every location is derived on
// demand as an absolute path; nothing touches the file system.
class TrackerRuntimePaths {
public:
    explicit TrackerRuntimePaths(QString homeURL);

    const QString& homeURL() const { return m_homeURL; }
    QString dataDirectoryURL() const;
    QString configURL() const;
    QString trackerDirectoryURL() const;
    QString stdoutLogURL() const;
    QString stderrLogURL() const;
    // Exactly two, "com.vantrel.tracker.plist" first.
    QStringList legacyServicePlistURLs() const;

    friend bool operator==(const TrackerRuntimePaths&, const TrackerRuntimePaths&) = default;

private:
    QString m_homeURL;
};
