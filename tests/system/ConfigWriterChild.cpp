// Rewrites one key of a configuration file in an endless loop until it is killed; the crash-safety
// test kills it at random moments. Each generation n writes a large value derived from n so that
// a torn write would be visible.
//
//   config_writer_child <path> <first generation>

#include "ConfigWriterGenerations.h"
#include "system/TrackerConfigFile.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 3) {
        std::fputs("usage: config_writer_child <path> <first generation>\n", stderr);
        return 64;
    }
    TrackerConfigFile file(arguments[1]);
    for (qint64 generation = arguments[2].toLongLong();; ++generation) {
        file.setValue(ConfigWriterGenerations::value(generation), "api_url");
    }
}
