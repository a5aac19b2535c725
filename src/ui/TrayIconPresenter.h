#pragma once

#include "app/TrackerHealth.h"

#include <QObject>
#include <QString>

class AppState;

// What the tray icon tells at a glance: the health state, drawn as a badge on the mark in the
// application palette's colours, and the status title as its tooltip.
class TrayIconPresenter : public QObject {
    Q_OBJECT
public:
    explicit TrayIconPresenter(AppState& appState, QObject* parent = nullptr);

    TrackerHealth::Kind healthKind() const { return m_health.kind(); }
    QString toolTip() const { return m_health.statusLabel(); }

Q_SIGNALS:
    // Only when what the icon shows changes, so the tray host is not asked to redraw for nothing.
    void changed();

protected:
    // A switch between light and dark redraws the icon in the new palette's colours.
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void update();

    AppState& m_appState;
    TrackerHealth m_health;
};
