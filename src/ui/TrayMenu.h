#pragma once

#include <QHash>
#include <QMenu>

class TrayMenuPresenter;

// The tray menu as a widget, for the XEmbed icon and for hosts that ask the item to show its own
// menu. Each entry keeps one action for its life; a change of state only reorders, retitles and
// shows or hides them, so an open menu stays the same menu.
class TrayMenu : public QMenu {
    Q_OBJECT
public:
    explicit TrayMenu(TrayMenuPresenter& presenter, QWidget* parent = nullptr);

private:
    void render();

    TrayMenuPresenter& m_presenter;
    QHash<QString, QAction*> m_actions;
};
