#pragma once

#include <QByteArray>
#include <QByteArrayList>

#include <cstdio>
#include <cstdlib>

// A property the input broke: report it and abort, which libFuzzer records as a crash and keeps
// the input that caused it.
inline void require(bool holds, const char* property) {
    if (!holds) {
        std::fprintf(stderr, "Property violated: %s\n", property);
        std::abort();
    }
}

// The fuzzer's bytes split at NUL bytes into at most `parts` pieces, so that seeds stay readable
// text: "<first>\0<second>…". Missing pieces are null.
inline QByteArrayList inputParts(const unsigned char* data, size_t size, qsizetype parts) {
    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    QByteArrayList pieces;
    qsizetype start = 0;
    while (pieces.size() < parts - 1) {
        const qsizetype nul = input.indexOf('\0', start);
        if (nul < 0) {
            break;
        }
        pieces.append(input.sliced(start, nul - start));
        start = nul + 1;
    }
    pieces.append(input.sliced(start));
    while (pieces.size() < parts) {
        pieces.append(QByteArray());
    }
    return pieces;
}
