#pragma once

#include <QString>

// Everything one launch of the tracker helper needs. The "URL" members are absolute local paths.
// `apiKey` goes to the helper's standard input and nowhere else: this type deliberately has no
// debug or string conversion.
struct LaunchConfiguration {
    QString executableURL;
    QString configURL;
    QString apiKey;
    QString deviceName;
    QString stdoutURL;
    QString stderrURL;

    friend bool operator==(const LaunchConfiguration&, const LaunchConfiguration&) = default;
};
