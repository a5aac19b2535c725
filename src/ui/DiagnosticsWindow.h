#pragma once

#include "ui/DiagnosticsPresenter.h"

#include <QList>
#include <QWidget>

class AppState;
class QLabel;
class TrackerSupervising;

// The Diagnostics window: the operational metadata support asks for, the latest error, and the
// actions to reveal the logs, copy the report and refresh the status. Live: it re-renders
// whenever either observed object changes.
class DiagnosticsWindow : public QWidget {
    Q_OBJECT
public:
    DiagnosticsWindow(AppState& state, TrackerSupervising& supervisor, QWidget* parent = nullptr);

    DiagnosticsPresenter& presenter() { return m_presenter; }

protected:
    void changeEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    QLayout* makeHeader();
    void render();

    DiagnosticsPresenter m_presenter;
    QLabel* m_healthIcon = nullptr;
    QList<QLabel*> m_values;
    QLabel* m_error = nullptr;
};
