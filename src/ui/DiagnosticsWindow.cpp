#include "ui/DiagnosticsWindow.h"

#include "ui/HealthAppearance.h"
#include "ui/SymbolIcon.h"

#include <QEvent>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

constexpr int healthIconSize = 28;

QLabel* secondaryLabel(const QString& text) {
    auto* label = new QLabel(text);
    // Taken from the palette when drawn, so that it follows a switch between light and dark.
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

// Replacing a value's text, even by the same text, drops a selection the user is making in it.
void setChangedText(QLabel* label, const QString& text) {
    if (label->text() != text) {
        label->setText(text);
    }
}

} // namespace

DiagnosticsWindow::DiagnosticsWindow(AppState& state, TrackerSupervising& supervisor,
                                     QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_presenter(state, supervisor) {
    setObjectName(QStringLiteral("diagnostics"));
    setWindowTitle(QStringLiteral("Vantrel Diagnostics"));
    setMinimumSize(520, 420);
    resize(560, 480);

    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(18);
    layout->setContentsMargins(24, 24, 24, 24);
    layout->addStretch();
    layout->addLayout(makeHeader());

    auto* grid = new QGridLayout;
    grid->setHorizontalSpacing(24);
    grid->setVerticalSpacing(9);
    grid->setColumnStretch(1, 1);
    const QList<DiagnosticsPresenter::Row> rows = m_presenter.rows();
    for (int i = 0; i < rows.size(); ++i) {
        auto* label = secondaryLabel(rows[i].label);
        auto* value = new QLabel;
        value->setTextInteractionFlags(Qt::TextSelectableByMouse);
        value->setTextFormat(Qt::PlainText);
        // Read out as "Running, Helper": the value is the name, its row label the description.
        value->setAccessibleDescription(rows[i].label);
        label->setBuddy(value);
        grid->addWidget(label, i, 0);
        grid->addWidget(value, i, 1);
        m_values.append(value);
    }
    layout->addLayout(grid);

    m_error = new QLabel;
    m_error->setObjectName(QStringLiteral("error"));
    m_error->setTextFormat(Qt::PlainText);
    m_error->setWordWrap(true);
    m_error->setTextInteractionFlags(Qt::TextSelectableByMouse);
    QFont caption = m_error->font();
    caption.setPointSizeF(caption.pointSizeF() * 0.85);
    m_error->setFont(caption);
    QPalette red = m_error->palette();
    red.setColor(QPalette::WindowText, HealthAppearance::red());
    m_error->setPalette(red);
    layout->addWidget(m_error);

    auto* buttons = new QHBoxLayout;
    auto* openLogs = new QPushButton(QStringLiteral("Open Logs in Finder"));
    auto* copy = new QPushButton(QStringLiteral("Copy Diagnostics"));
    auto* refresh = new QPushButton(QStringLiteral("Refresh"));
    connect(openLogs, &QPushButton::clicked, &m_presenter, &DiagnosticsPresenter::openLogs);
    connect(copy, &QPushButton::clicked, &m_presenter, &DiagnosticsPresenter::copyDiagnostics);
    connect(refresh, &QPushButton::clicked, &m_presenter, &DiagnosticsPresenter::refresh);
    buttons->addWidget(openLogs);
    buttons->addWidget(copy);
    buttons->addStretch();
    buttons->addWidget(refresh);
    layout->addLayout(buttons);
    layout->addStretch();

    connect(&m_presenter, &DiagnosticsPresenter::changed, this, &DiagnosticsWindow::render);
    render();
}

QLayout* DiagnosticsWindow::makeHeader() {
    auto* titles = new QVBoxLayout;
    titles->setSpacing(4);
    auto* title = new QLabel(QStringLiteral("Diagnostics"));
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.4);
    titleFont.setBold(true);
    title->setFont(titleFont);
    titles->addWidget(title);
    titles->addWidget(secondaryLabel(QStringLiteral(
        "Operational metadata only. API keys and activity content are never shown.")));

    m_healthIcon = new QLabel;
    m_healthIcon->setObjectName(QStringLiteral("healthIcon"));
    m_healthIcon->setFixedSize(healthIconSize, healthIconSize);

    auto* header = new QHBoxLayout;
    header->addLayout(titles);
    header->addStretch();
    header->addWidget(m_healthIcon, 0, Qt::AlignVCenter);
    return header;
}

void DiagnosticsWindow::render() {
    const QList<DiagnosticsPresenter::Row> rows = m_presenter.rows();
    for (int i = 0; i < rows.size(); ++i) {
        setChangedText(m_values[i], rows[i].value);
    }

    m_healthIcon->setPixmap(SymbolIcon::pixmap(m_presenter.healthSymbolName(),
                                               palette().color(QPalette::WindowText),
                                               healthIconSize, devicePixelRatioF()));
    m_healthIcon->setAccessibleName(m_presenter.health().statusLabel());

    const std::optional<QString> error = m_presenter.errorLine();
    setChangedText(m_error, error.value_or(QString()));
    m_error->setVisible(error.has_value());
}

void DiagnosticsWindow::changeEvent(QEvent* event) {
    // The icon is tinted with the text colour, which a theme change changes.
    if (event->type() == QEvent::PaletteChange && m_error != nullptr) {
        render();
    }
    QWidget::changeEvent(event);
}

void DiagnosticsWindow::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape && event->modifiers() == Qt::NoModifier) {
        close();
        return;
    }
    QWidget::keyPressEvent(event);
}
