#include "ui/TrayMenu.h"

#include "ui/TrayMenuPresenter.h"

TrayMenu::TrayMenu(TrayMenuPresenter& presenter, QWidget* parent)
    : QMenu(parent)
    , m_presenter(presenter) {
    connect(&m_presenter, &TrayMenuPresenter::changed, this, &TrayMenu::render);
    render();
}

void TrayMenu::render() {
    for (QAction* action : actions()) {
        removeAction(action);
    }
    for (const TrayMenuPresenter::Entry& entry : m_presenter.entries()) {
        QAction*& action = m_actions[entry.key];
        if (!action) {
            action = new QAction(this);
            const QString key = entry.key;
            connect(action, &QAction::triggered, this, [this, key] { m_presenter.trigger(key); });
        }
        action->setSeparator(entry.kind == TrayMenuPresenter::Kind::separator);
        // An ampersand in a status message is text, not a mnemonic.
        action->setText(QString(entry.label).replace(QLatin1Char('&'), QLatin1String("&&")));
        action->setEnabled(entry.kind == TrayMenuPresenter::Kind::action);
        addAction(action);
    }
}
