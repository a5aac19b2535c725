#pragma once

#include "ui/Ticking.h"

#include <QTimer>

class QTimerTicker : public Ticking {
    Q_OBJECT
public:
    explicit QTimerTicker(QObject* parent = nullptr);

    void start(std::chrono::milliseconds interval) override;
    void stop() override;
    bool isActive() const override;

private:
    QTimer m_timer;
};
