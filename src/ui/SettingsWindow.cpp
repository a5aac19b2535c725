#include "ui/SettingsWindow.h"

#include "ui/HealthAppearance.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QShowEvent>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

// Small secondary text under a control.
QLabel* captionLabel(const QString& text = {}) {
    auto* label = new QLabel(text);
    label->setWordWrap(true);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.85);
    label->setFont(font);
    // Taken from the palette when drawn, so that it follows a switch between light and dark.
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

// Only "Save Changes" answers Return, wherever the focus is.
QPushButton* plainButton(const QString& text) {
    auto* button = new QPushButton(text);
    button->setAutoDefault(false);
    return button;
}

void setTextKeepingCursor(QLineEdit* field, const QString& text) {
    if (field->text() != text) {
        field->setText(text);
    }
}

} // namespace

SettingsWindow::SettingsWindow(SettingsPresenter& presenter, QWidget* parent)
    : QDialog(parent)
    , m_presenter(presenter) {
    setObjectName(QStringLiteral("settings"));
    setWindowTitle(QStringLiteral("Vantrel Settings"));
    setFixedSize(560, 390);

    // The form scrolls as a whole when the advanced settings make it taller than the window.
    auto* form = new QWidget;
    auto* sections = new QVBoxLayout(form);
    sections->addWidget(makeConnectionSection());
    sections->addWidget(makeStartupSection());
    sections->addWidget(makeActionSection());
    sections->addStretch();

    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setWidget(form);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(scroll);

    connect(&m_presenter, &SettingsPresenter::stateChanged, this, &SettingsWindow::renderState);
    connect(&m_presenter, &SettingsPresenter::fieldsChanged, this, &SettingsWindow::renderFields);
    connect(&m_presenter, &SettingsPresenter::feedbackChanged, this,
            &SettingsWindow::renderFeedback);
    renderState();
    renderFields();
    renderFeedback();
}

QWidget* SettingsWindow::makeConnectionSection() {
    auto* section = new QGroupBox(QStringLiteral("Connection"));
    auto* layout = new QVBoxLayout(section);

    m_description = captionLabel();
    layout->addWidget(m_description);

    m_signInButton = plainButton(QString());
    connect(m_signInButton, &QPushButton::clicked, &m_presenter, &SettingsPresenter::signIn);
    layout->addWidget(m_signInButton, 0, Qt::AlignLeft);

    m_advancedToggle = new QToolButton;
    m_advancedToggle->setObjectName(QStringLiteral("advancedToggle"));
    m_advancedToggle->setText(QStringLiteral("Advanced connection settings"));
    m_advancedToggle->setCheckable(true);
    m_advancedToggle->setAutoRaise(true);
    m_advancedToggle->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_advancedToggle->setArrowType(Qt::RightArrow);
    m_advancedToggle->setFocusPolicy(Qt::StrongFocus);
    layout->addWidget(m_advancedToggle);

    m_advancedContent = new QWidget;
    auto* advanced = new QFormLayout(m_advancedContent);
    advanced->setContentsMargins(0, 0, 0, 0);
    m_serverURLField = new QLineEdit;
    m_serverURLField->setObjectName(QStringLiteral("serverURL"));
    m_serverURLField->setAccessibleName(QStringLiteral("API server URL"));
    advanced->addRow(QStringLiteral("API server URL"), m_serverURLField);
    m_apiKeyField = new QLineEdit;
    m_apiKeyField->setObjectName(QStringLiteral("apiKey"));
    m_apiKeyField->setEchoMode(QLineEdit::Password);
    m_apiKeyLabel = new QLabel;
    m_apiKeyLabel->setBuddy(m_apiKeyField);
    advanced->addRow(m_apiKeyLabel, m_apiKeyField);
    advanced->addRow(captionLabel(QStringLiteral(
        "Manual keys remain available for self-hosted and Waka-compatible setups. Saving "
        "restarts the local tracker safely.")));
    layout->addWidget(m_advancedContent);

    const auto expand = [this](bool expanded) {
        m_advancedToggle->setArrowType(expanded ? Qt::DownArrow : Qt::RightArrow);
        m_advancedContent->setVisible(expanded);
        m_presenter.setAdvancedExpanded(expanded);
    };
    m_advancedToggle->setChecked(m_presenter.isAdvancedExpanded());
    expand(m_presenter.isAdvancedExpanded());
    connect(m_advancedToggle, &QToolButton::toggled, this, expand);
    // textChanged rather than textEdited: text set by assistive technology arrives as setText.
    connect(m_serverURLField, &QLineEdit::textChanged, &m_presenter,
            &SettingsPresenter::setServerURL);
    connect(m_apiKeyField, &QLineEdit::textChanged, &m_presenter,
            &SettingsPresenter::setReplacementAPIKey);
    return section;
}

QWidget* SettingsWindow::makeStartupSection() {
    auto* section = new QGroupBox(QStringLiteral("Startup"));
    auto* layout = new QVBoxLayout(section);
    m_launchAtLoginSwitch = new QCheckBox(QStringLiteral("Launch Vantrel at login"));
    connect(m_launchAtLoginSwitch, &QCheckBox::toggled, &m_presenter,
            &SettingsPresenter::setLaunchAtLogin);
    layout->addWidget(m_launchAtLoginSwitch);
    layout->addWidget(captionLabel(QStringLiteral(
        "Quitting stops tracking until the next launch. This preference is preserved.")));
    return section;
}

QWidget* SettingsWindow::makeActionSection() {
    auto* section = new QGroupBox;
    auto* layout = new QVBoxLayout(section);
    auto* buttons = new QHBoxLayout;
    auto* privacy = plainButton(QStringLiteral("Privacy"));
    auto* support = plainButton(QStringLiteral("Support"));
    m_saveButton = new QPushButton(QStringLiteral("Save Changes"));
    m_saveButton->setDefault(true);
    connect(privacy, &QPushButton::clicked, &m_presenter, &SettingsPresenter::openPrivacy);
    connect(support, &QPushButton::clicked, &m_presenter, &SettingsPresenter::openSupport);
    connect(m_saveButton, &QPushButton::clicked, &m_presenter, &SettingsPresenter::save);
    buttons->addWidget(privacy);
    buttons->addWidget(support);
    buttons->addStretch();
    buttons->addWidget(m_saveButton);
    layout->addLayout(buttons);

    m_feedback = captionLabel();
    m_feedback->setObjectName(QStringLiteral("feedback"));
    m_feedback->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(m_feedback);
    return section;
}

void SettingsWindow::renderState() {
    m_description->setText(m_presenter.description());
    m_signInButton->setVisible(m_presenter.isSignInButtonVisible());
    m_signInButton->setEnabled(m_presenter.isSignInButtonEnabled());
    m_signInButton->setText(m_presenter.signInButtonTitle());
    // A masked field has no readable text of its own: its name is its label.
    m_apiKeyLabel->setText(m_presenter.apiKeyFieldTitle());
    m_apiKeyField->setAccessibleName(m_presenter.apiKeyFieldTitle());
}

void SettingsWindow::renderFields() {
    setTextKeepingCursor(m_serverURLField, m_presenter.serverURL());
    setTextKeepingCursor(m_apiKeyField, m_presenter.replacementAPIKey());
    m_launchAtLoginSwitch->setChecked(m_presenter.launchAtLogin());
}

void SettingsWindow::renderFeedback() {
    const std::optional<QString>& feedback = m_presenter.feedback();
    m_feedback->setVisible(feedback.has_value());
    m_feedback->setText(feedback.value_or(QString()));
    m_feedback->setForegroundRole(QPalette::WindowText);
    QPalette palette = m_feedback->palette();
    palette.setColor(QPalette::WindowText, m_presenter.isFeedbackSuccess()
                                               ? HealthAppearance::green()
                                               : HealthAppearance::red());
    m_feedback->setPalette(palette);
}

void SettingsWindow::showEvent(QShowEvent* event) {
    // Opened or shown again, not restored from the taskbar: a restored window keeps what the
    // user typed. Restoring delivers the show event as a spontaneous one.
    if (!event->spontaneous()) {
        m_presenter.appear();
    }
    QDialog::showEvent(event);
    if (!m_didClearInitialFocus) {
        m_didClearInitialFocus = true;
        clearInitialFocus();
        // Activation may still hand the focus to the first field after this turn.
        QTimer::singleShot(0, this, &SettingsWindow::clearInitialFocus);
    }
}

void SettingsWindow::clearInitialFocus() {
    // The window itself takes the focus: no field shows a cursor, and Return and Escape still
    // reach the dialog.
    setFocus(Qt::OtherFocusReason);
}
