#pragma once

#include "ui/MenuBarPresenter.h"

#include <QList>
#include <QObject>
#include <QString>

#include <memory>

// The tray icon's menu as data, for every host: on GNOME a left click opens it and nothing else,
// so it carries the whole product. First the state (title, the action-required message, the
// confirmation code and its countdown while signing in), then the panel's primary actions, then
// Settings…, Diagnostics…, Sign Out and Quit Vantrel.
//
// Each entry keeps one key for its life, so a host that shows the menu while the state changes
// sees the same items change rather than a new menu.
class TrayMenuPresenter : public QObject {
    Q_OBJECT
public:
    enum class Kind { text, action, separator };
    struct Entry {
        QString key;
        Kind kind;
        QString label;
        bool operator==(const Entry&) const = default;
    };

    TrayMenuPresenter(MenuBarPresenter& presenter,
                      const MenuBarPresenter::TickerFactory& makeTicker, QObject* parent = nullptr);
    ~TrayMenuPresenter() override;

    const QList<Entry>& entries() const { return m_entries; }
    // Performs the action with this key; a key the current state does not offer does nothing
    // (a host may click an entry of a menu it has not refreshed yet).
    void trigger(const QString& key);

Q_SIGNALS:
    void changed();

private:
    void refresh();
    QList<Entry> evaluate() const;

    MenuBarPresenter& m_presenter;
    std::unique_ptr<Ticking> m_countdownTicker;
    QList<Entry> m_entries;
};
