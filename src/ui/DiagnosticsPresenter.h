#pragma once

#include "app/TrackerHealth.h"

#include <QList>
#include <QObject>
#include <QString>

#include <optional>

class AppState;
class TrackerSupervising;

// What the Diagnostics window shows, without widgets: the health, twelve labelled values and the
// latest error. It holds nothing of its own; every read asks the two observed objects.
class DiagnosticsPresenter : public QObject {
    Q_OBJECT
public:
    struct Row {
        QString label;
        QString value;
        friend bool operator==(const Row&, const Row&) = default;
    };

    DiagnosticsPresenter(AppState& state, TrackerSupervising& supervisor,
                         QObject* parent = nullptr);

    TrackerHealth health() const;
    QString healthSymbolName() const;
    QList<Row> rows() const;
    // The supervisor's error before the application's; none when neither has one.
    std::optional<QString> errorLine() const;

    void openLogs();
    void copyDiagnostics();
    // Asks for a fresh status report and returns at once; the rows follow when it arrives.
    void refresh();

Q_SIGNALS:
    // Anything shown may have changed.
    void changed();

private:
    AppState& m_state;
    TrackerSupervising& m_supervisor;
};
