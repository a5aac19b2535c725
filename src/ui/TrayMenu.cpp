#include "ui/TrayMenu.h"

#include "ui/MenuBarPresenter.h"

TrayMenu::TrayMenu(MenuBarPresenter& presenter, QWidget* parent)
    : QMenu(parent)
    , m_presenter(presenter) {
    m_open = addAction(QStringLiteral("Open Vantrel"), this, &TrayMenu::openRequested);
    addSeparator();
    m_settings =
        addAction(QStringLiteral("Settings…"), &m_presenter, &MenuBarPresenter::openSettings);
    m_diagnostics =
        addAction(QStringLiteral("Diagnostics…"), &m_presenter, &MenuBarPresenter::openDiagnostics);
    m_signIn = addAction(QStringLiteral("Sign In"), &m_presenter, &MenuBarPresenter::signIn);
    m_signOut = addAction(QStringLiteral("Sign Out"), &m_presenter, &MenuBarPresenter::signOut);
    addSeparator();
    m_quit = addAction(QStringLiteral("Quit Vantrel"), &m_presenter, &MenuBarPresenter::quit);
    connect(&m_presenter, &MenuBarPresenter::changed, this, &TrayMenu::update);
    update();
}

void TrayMenu::update() {
    // Signing in is offered exactly where the panel offers it as its primary action.
    m_signIn->setVisible(m_presenter.primaryGroup() == MenuBarPresenter::PrimaryGroup::signIn);
    m_signIn->setText(m_presenter.signInTitle());
    m_signOut->setVisible(m_presenter.showsSignOut());
}
