#include "ui/WindowDirectory.h"

WindowDirectory::~WindowDirectory() {
    // The windows observe objects that do not outlive the directory's owner.
    for (const Entry& entry : std::as_const(m_entries)) {
        delete entry.window.data();
    }
}

void WindowDirectory::add(const QString& identifier, Factory factory) {
    m_entries.insert(identifier, Entry{std::move(factory), {}});
}

bool WindowDirectory::open(const QString& identifier) {
    const auto found = m_entries.find(identifier);
    if (found == m_entries.end()) {
        return false;
    }
    if (!found->window) {
        found->window = found->factory();
    }
    QWidget* window = found->window;
    if (window->isMinimized()) {
        window->showNormal();
    } else {
        window->show();
    }
    window->raise();
    window->activateWindow();
    return true;
}

QWidget* WindowDirectory::window(const QString& identifier) const {
    const auto found = m_entries.constFind(identifier);
    return found == m_entries.constEnd() ? nullptr : found->window.data();
}
