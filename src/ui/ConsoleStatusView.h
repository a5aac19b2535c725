#pragma once

#include <QObject>
#include <QString>

class AppState;
class QIODevice;

// Until the tray panel exists, the application shows its status line on the terminal it was
// started from: one line whenever what the panel would show changes. Like every view it only
// reads the application state; it never shows the API key because the state holds none.
class ConsoleStatusView : public QObject {
    Q_OBJECT
public:
    ConsoleStatusView(AppState& state, QIODevice& output, QObject* parent = nullptr);

    // The line the view would print now.
    QString currentLine() const;

private:
    void refresh();

    AppState& m_state;
    QIODevice& m_output;
    QString m_lastLine;
};
