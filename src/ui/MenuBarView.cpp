#include "ui/MenuBarView.h"

#include "ui/HealthAppearance.h"
#include "ui/MenuBarPresenter.h"
#include "ui/MenuRowButton.h"
#include "ui/SymbolIcon.h"

#include <QEvent>
#include <QFontDatabase>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QShortcut>
#include <QTextLayout>
#include <QVBoxLayout>

namespace {

constexpr int headerSymbolSize = 28;
constexpr int buttonSymbolSize = 16;

constexpr int bodyMargin = 16;
constexpr int errorLines = 3;

// Secondary text takes its colour from the palette when drawn, so it follows a switch between
// light and dark.
void setSecondary(QWidget* widget) {
    widget->setForegroundRole(QPalette::PlaceholderText);
}

void setTextColour(QWidget* widget, const QColor& colour) {
    QPalette palette = widget->palette();
    palette.setColor(QPalette::WindowText, colour);
    palette.setColor(QPalette::Text, colour);
    widget->setPalette(palette);
}

// Replacing a label's text, even by the same text, drops a selection the user is making in it.
void setChangedText(QLabel* label, const QString& text) {
    if (label->text() != text) {
        label->setText(text);
    }
}

// `text` as it wraps at `width`, kept to `maxLines` lines: a longer text is cut at the end of the
// last line kept, which ends in "…".
QString clippedToLines(const QString& text, const QFont& font, int width, int maxLines) {
    QString wrapped = text;
    wrapped.replace(QLatin1Char('\n'), QChar::LineSeparator);
    QTextLayout layout(wrapped, font);
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setTextOption(option);
    QList<int> starts;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width);
        starts.append(line.textStart());
    }
    layout.endLayout();
    if (starts.size() <= maxLines) {
        return text;
    }
    QStringList lines;
    for (int i = 0; i + 1 < maxLines; ++i) {
        lines.append(wrapped.mid(starts[i], starts[i + 1] - starts[i]).trimmed());
    }
    QString rest = wrapped.mid(starts[maxLines - 1]);
    rest.replace(QChar::LineSeparator, QLatin1Char(' '));
    rest = rest.trimmed();
    const QFontMetrics metrics(font);
    QString last = metrics.elidedText(rest, Qt::ElideRight, width);
    if (!last.endsWith(QChar(0x2026))) {
        // The rest fits on its line only because a word broke over to it: still a cut text.
        last = metrics.elidedText(rest + QChar(0x2026), Qt::ElideRight, width);
    }
    lines.append(last);
    return lines.join(QLatin1Char('\n'));
}

QFont scaledFont(const QFont& base, qreal factor, bool bold = false) {
    QFont font = base;
    if (font.pointSizeF() > 0) {
        font.setPointSizeF(font.pointSizeF() * factor);
    } else {
        font.setPixelSize(qRound(font.pixelSize() * factor));
    }
    font.setBold(bold);
    return font;
}

QLabel* captionLabel(QWidget* parent, bool wraps = true) {
    auto* label = new QLabel(parent);
    label->setFont(scaledFont(parent->font(), 0.85));
    label->setWordWrap(wraps);
    label->setTextFormat(Qt::PlainText);
    return label;
}

QFrame* divider(QWidget* parent) {
    auto* line = new QFrame(parent);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}

} // namespace

MenuBarView::MenuBarView(MenuBarPresenter& presenter, QWidget* parent)
    : QWidget(parent)
    , m_presenter(presenter) {
    setFixedWidth(panelWidth);
    setAccessibleName(QStringLiteral("Vantrel"));
    auto* body = new QVBoxLayout(this);
    body->setContentsMargins(bodyMargin, bodyMargin, bodyMargin, bodyMargin);
    body->setSpacing(14);

    // 1. Status header.
    auto* header = new QHBoxLayout;
    header->setSpacing(10);
    m_headerIcon = new QLabel(this);
    m_headerIcon->setFixedSize(headerSymbolSize, headerSymbolSize);
    header->addWidget(m_headerIcon, 0, Qt::AlignVCenter);
    auto* titles = new QVBoxLayout;
    titles->setSpacing(2);
    auto* name = new QLabel(QStringLiteral("Vantrel"), this);
    name->setFont(scaledFont(font(), 1.0, true));
    titles->addWidget(name);
    m_headerTitle = new QLabel(this);
    m_headerTitle->setFont(scaledFont(font(), 0.92));
    titles->addWidget(m_headerTitle);
    header->addLayout(titles);
    header->addStretch();
    body->addLayout(header);

    // 2. Details.
    auto* details = new QVBoxLayout;
    details->setSpacing(7);
    m_healthMessage = captionLabel(this);
    details->addWidget(m_healthMessage);

    // The code in caption size, monospaced and bold, beside a title in the body's own font.
    m_code = new QLabel(this);
    QFont codeFont = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    codeFont.setPointSizeF(scaledFont(font(), 0.85).pointSizeF());
    codeFont.setBold(true);
    m_code->setFont(codeFont);
    m_code->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    m_code->setAccessibleDescription(QStringLiteral("Confirmation code"));
    m_codeRow = detailRow(QStringLiteral("Confirmation code"), m_code, false);
    details->addWidget(m_codeRow);

    m_expiry = captionLabel(this, false);
    m_expiryRow = detailRow(QStringLiteral("Expires in"), m_expiry);
    details->addWidget(m_expiryRow);

    m_authorizationMessage = captionLabel(this);
    details->addWidget(m_authorizationMessage);

    auto* lastSync = new QWidget(this);
    auto* lastSyncLines = new QVBoxLayout(lastSync);
    lastSyncLines->setContentsMargins(0, 0, 0, 0);
    lastSyncLines->setSpacing(2);
    m_lastSyncAbsolute = captionLabel(this, false);
    m_lastSyncAbsolute->setAlignment(Qt::AlignRight);
    m_lastSyncRelative = captionLabel(this, false);
    m_lastSyncRelative->setAlignment(Qt::AlignRight);
    lastSyncLines->addWidget(m_lastSyncAbsolute);
    lastSyncLines->addWidget(m_lastSyncRelative);
    details->addWidget(detailRow(QStringLiteral("Last sync"), lastSync));

    m_today = captionLabel(this);
    m_today->setAlignment(Qt::AlignRight);
    m_todayRow = detailRow(QStringLiteral("Today"), m_today);
    details->addWidget(m_todayRow);

    m_migrationRow = new QWidget(this);
    auto* migration = new QHBoxLayout(m_migrationRow);
    migration->setContentsMargins(0, 0, 0, 0);
    m_migrationIcon = new QLabel(m_migrationRow);
    m_migration = captionLabel(m_migrationRow);
    migration->addWidget(m_migrationIcon, 0, Qt::AlignTop);
    migration->addWidget(m_migration, 1);
    details->addWidget(m_migrationRow);

    m_error = captionLabel(this);
    details->addWidget(m_error);
    body->addLayout(details);

    body->addWidget(divider(this));

    // 4. Primary action: one of three groups; hidden members take no room.
    auto* primary = new QVBoxLayout;
    primary->setSpacing(14);
    const auto button = [this, primary](const QString& title, const QString& symbol,
                                        void (MenuBarPresenter::*action)()) {
        auto* pushButton = new QPushButton(title, this);
        pushButton->setProperty("symbolName", symbol);
        pushButton->setIconSize(QSize(buttonSymbolSize, buttonSymbolSize));
        connect(pushButton, &QPushButton::clicked, &m_presenter, action);
        primary->addWidget(pushButton, 0, Qt::AlignLeft);
        return pushButton;
    };
    m_openApprovalPage = button(QStringLiteral("Open Approval Page"), QStringLiteral("safari"),
                                &MenuBarPresenter::openApprovalPage);
    m_cancelSignIn = button(QStringLiteral("Cancel Sign In"), QStringLiteral("xmark.circle"),
                            &MenuBarPresenter::cancelSignIn);
    m_openDashboard = button(QStringLiteral("Open Dashboard"),
                             QStringLiteral("rectangle.portrait.and.arrow.right"),
                             &MenuBarPresenter::openDashboard);
    // The dashboard is the main way onward when all is well: a large, full-width button.
    primary->setAlignment(m_openDashboard, Qt::Alignment());
    m_openDashboard->setMinimumHeight(34);
    m_openDashboard->setStyleSheet(QStringLiteral("text-align: left; padding-left: 10px;"));
    m_retryTracker = button(QStringLiteral("Retry Tracker"), QStringLiteral("arrow.clockwise"),
                            &MenuBarPresenter::retryTracker);
    m_signIn =
        button(QStringLiteral("Sign In"), QStringLiteral("person.crop.circle.badge.checkmark"),
               &MenuBarPresenter::signIn);
    m_signInCaption = captionLabel(this);
    m_signInCaption->setText(
        QStringLiteral("Vantrel opens a secure browser page where you approve this Mac."));
    primary->addWidget(m_signInCaption);
    body->addLayout(primary);

    body->addWidget(divider(this));

    // 6. Actions.
    auto* actions = new QVBoxLayout;
    actions->setSpacing(6);
    const auto row = [this, actions](const QString& title, const QString& symbol,
                                     void (MenuBarPresenter::*action)()) {
        auto* menuRow = new MenuRowButton(title, symbol, this);
        connect(menuRow, &MenuRowButton::clicked, &m_presenter, action);
        actions->addWidget(menuRow);
        return menuRow;
    };
    m_settings = row(QStringLiteral("Settings…"), QStringLiteral("gearshape"),
                     &MenuBarPresenter::openSettings);
    m_diagnostics = row(QStringLiteral("Diagnostics…"), QStringLiteral("stethoscope"),
                        &MenuBarPresenter::openDiagnostics);
    for (MenuRowButton* opensWindow : {m_settings, m_diagnostics}) {
        connect(opensWindow, &MenuRowButton::clicked, this, &MenuBarView::windowOpened);
    }
    m_signOut =
        row(QStringLiteral("Sign Out"), QStringLiteral("rectangle.portrait.and.arrow.right"),
            &MenuBarPresenter::signOut);
    m_quit = row(QStringLiteral("Quit Vantrel"), QStringLiteral("power"), &MenuBarPresenter::quit);
    auto* quitShortcut = new QShortcut(QKeySequence::Quit, this);
    connect(quitShortcut, &QShortcut::activated, &m_presenter, &MenuBarPresenter::quit);
    body->addLayout(actions);

    for (QLabel* secondaryLabel : {m_headerTitle, m_healthMessage, m_authorizationMessage,
                                   m_migration, m_signInCaption, m_lastSyncRelative}) {
        setSecondary(secondaryLabel);
    }
    setTextColour(m_error, HealthAppearance::red());

    connect(&m_presenter, &MenuBarPresenter::changed, this, &MenuBarView::render);
    connect(&m_presenter, &MenuBarPresenter::lastSyncChanged, this, &MenuBarView::renderLastSync);
    connect(&m_presenter, &MenuBarPresenter::countdownChanged, this, &MenuBarView::renderCountdown);
    renderTints();
    render();
}

QWidget* MenuBarView::detailRow(const QString& title, QWidget* value, bool captionTitle) {
    auto* rowWidget = new QWidget(this);
    auto* layout = new QHBoxLayout(rowWidget);
    layout->setContentsMargins(0, 0, 0, 0);
    QLabel* titleLabel = captionTitle ? captionLabel(rowWidget, false) : new QLabel(rowWidget);
    titleLabel->setText(title);
    setSecondary(titleLabel);
    layout->addWidget(titleLabel, 0, Qt::AlignTop);
    layout->addStretch();
    layout->addWidget(value, 0, Qt::AlignTop);
    value->setParent(rowWidget);
    return rowWidget;
}

void MenuBarView::render() {
    const QColor headerColour = HealthAppearance::colour(m_presenter.healthKind(), palette());
    m_headerIcon->setPixmap(SymbolIcon::pixmap(m_presenter.headerSymbol(), headerColour,
                                               headerSymbolSize, devicePixelRatioF()));
    m_headerIcon->setAccessibleName(m_presenter.headerTitle());
    m_headerTitle->setText(m_presenter.headerTitle());

    const auto show = [](QLabel* label, const std::optional<QString>& text) {
        label->setVisible(text.has_value());
        setChangedText(label, text.value_or(QString()));
    };
    show(m_healthMessage, m_presenter.healthMessage());
    const auto code = m_presenter.confirmationCode();
    m_codeRow->setVisible(code.has_value());
    setChangedText(m_code, code.value_or(QString()));
    show(m_authorizationMessage, m_presenter.authorizationMessage());
    const auto today = m_presenter.todayValue();
    m_todayRow->setVisible(today.has_value());
    m_today->setText(today.value_or(QString()));
    const auto migration = m_presenter.migrationSummary();
    m_migrationRow->setVisible(migration.has_value());
    m_migration->setText(migration.value_or(QString()));
    const auto error = m_presenter.presentedError();
    m_error->setVisible(error.has_value());
    const QString fullError = error.value_or(QString());
    const QString shownError =
        clippedToLines(fullError, m_error->font(), panelWidth - 2 * bodyMargin, errorLines);
    m_error->setText(shownError);
    m_error->setToolTip(shownError == fullError ? QString() : fullError);

    const auto group = m_presenter.primaryGroup();
    m_openApprovalPage->setVisible(group == MenuBarPresenter::PrimaryGroup::authorizing);
    m_cancelSignIn->setVisible(group == MenuBarPresenter::PrimaryGroup::authorizing);
    m_openDashboard->setVisible(group == MenuBarPresenter::PrimaryGroup::signedIn);
    m_retryTracker->setVisible(m_presenter.showsRetryTracker());
    m_signIn->setVisible(group == MenuBarPresenter::PrimaryGroup::signIn);
    m_signIn->setText(m_presenter.signInTitle());
    m_signInCaption->setVisible(group == MenuBarPresenter::PrimaryGroup::signIn);
    m_signOut->setVisible(m_presenter.showsSignOut());
    renderLastSync();
    renderCountdown();
}

void MenuBarView::renderTints() {
    const QPalette& colours = palette();
    for (QPushButton* pushButton :
         {m_openApprovalPage, m_cancelSignIn, m_openDashboard, m_retryTracker, m_signIn}) {
        pushButton->setIcon(SymbolIcon::icon(pushButton->property("symbolName").toString(),
                                             colours.color(QPalette::ButtonText)));
    }
    m_migrationIcon->setPixmap(SymbolIcon::pixmap(QStringLiteral("arrow.triangle.2.circlepath"),
                                                  colours.color(QPalette::PlaceholderText), 12,
                                                  devicePixelRatioF()));
}

void MenuBarView::renderLastSync() {
    const auto& lastSync = m_presenter.lastSync();
    if (lastSync) {
        m_lastSyncAbsolute->setText(lastSync->absolute);
        m_lastSyncRelative->setText(QLatin1Char('(') + lastSync->relative + QLatin1Char(')'));
    } else {
        m_lastSyncAbsolute->setText(QStringLiteral("Not synced yet"));
    }
    m_lastSyncRelative->setVisible(lastSync.has_value());
}

void MenuBarView::renderCountdown() {
    const auto countdown = m_presenter.expiryCountdown();
    m_expiryRow->setVisible(countdown.has_value());
    m_expiry->setText(countdown.value_or(QString()));
}

void MenuBarView::showEvent(QShowEvent* event) {
    m_presenter.setShown(true);
    QWidget::showEvent(event);
}

void MenuBarView::hideEvent(QHideEvent* event) {
    m_presenter.setShown(false);
    QWidget::hideEvent(event);
}

void MenuBarView::changeEvent(QEvent* event) {
    if (event->type() == QEvent::PaletteChange) {
        // Text follows the palette by itself; the drawn symbols are tinted anew.
        renderTints();
        render();
    }
    QWidget::changeEvent(event);
}
