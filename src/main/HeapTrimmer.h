#pragma once

#include <QObject>
#include <QTimer>

// Hands the heap's free pages back to the system a little after a burst of work ends (start-up,
// a window closing). The allocator keeps freed memory for reuse, and a tray application that
// then sits idle all day would otherwise carry the peak of its busiest moment.
class HeapTrimmer : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::seconds delay{2};

    explicit HeapTrimmer(QObject* parent = nullptr);

    // Trims once, `delay` after the last call; nothing runs until then.
    void schedule();

private:
    QTimer m_timer;
};
