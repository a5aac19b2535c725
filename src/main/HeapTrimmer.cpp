#include "main/HeapTrimmer.h"

#include <QPixmapCache>

#include <malloc.h>

HeapTrimmer::HeapTrimmer(QObject* parent)
    : QObject(parent) {
    m_timer.setSingleShot(true);
    m_timer.setInterval(delay);
    connect(&m_timer, &QTimer::timeout, this, [] {
        // Pixmaps of closed windows are cached on the chance they are drawn again soon.
        QPixmapCache::clear();
        malloc_trim(0);
    });
}

void HeapTrimmer::schedule() {
    m_timer.start();
}
