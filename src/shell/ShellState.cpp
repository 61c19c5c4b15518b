#include "shell/ShellState.h"

#include "history/RowText.h"
#include "session/Session.h"
#include "shell/ForwardingDraft.h"
#include "telephony/KeypadInput.h"
#include "telephony/Phone.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QQmlEngine>

namespace {

const char* const sections[] = {"recents", "directory", "keypad", "voicemail", "queues"};

} // namespace

ShellState::ShellState(SettingsStore& settings, Phone& phone, Session& session, QObject* parent)
    : QObject(parent), m_settings(settings), m_phone(phone), m_session(session),
      m_now([] { return QDateTime::currentDateTime(); }) {
    const QString stored = settings.text(QString::fromLatin1(sectionKey)).value_or(QString());
    m_section = isSection(stored) ? stored : QStringLiteral("recents");
    m_keepInTray = settings.boolean(QString::fromLatin1(keepInTrayKey)).value_or(true);
    connect(&phone, &Phone::lastErrorChanged, this, &ShellState::alertChanged);
    connect(&session, &Session::errorChanged, this, &ShellState::alertChanged);
    // --- server actions ---
    connect(&session, &Session::voicemailChanged, this, &ShellState::badgesChanged);
    connect(&session, &Session::queuesChanged, this, &ShellState::badgesChanged);
    connect(&session.live(), &Live::boardsChanged, this, &ShellState::badgesChanged);
    m_voicemailPlayer.setSession(&session);
    m_voicemailPlayer.setPhone(&phone);
    connect(&session, &Session::meChanged, this, &ShellState::forwardingChanged);
    // --- end of server actions ---
    connect(&phone, &Phone::registrationUpdated, this, &ShellState::registrationChanged);
    // --- directory ---
    m_contactsModel = std::make_unique<ContactsModel>();
    m_directoryContacts = std::make_unique<ContactsFilter>();
    m_directoryContacts->setContactsModel(m_contactsModel.get());
    // --- end of directory ---
    // --- settings window ---
    m_settingsState = std::make_unique<SettingsState>(
        phone, session, settings,
        std::make_unique<AutostartEntry>(QCoreApplication::applicationFilePath()));
    // --- end of settings window ---
    // --- call history ---
    m_recentsModel = std::make_unique<RecentsModel>(session.history(), phone.recents(), settings);
    m_recentsModel->owner = [&session] { return session.historyOwner(); };
    m_recentsModel->colleagueName = [&session](const QString& number) -> std::optional<QString> {
        if (const auto colleague = session.colleague(number)) {
            return colleague->name;
        }
        return std::nullopt;
    };
    m_recentsModel->contactName = [&phone](const QString& number) -> std::optional<QString> {
        return phone.contactName ? phone.contactName(number) : std::nullopt;
    };
    m_recentsModel->refresh = [&session] { session.loadHistory(); };
    m_recentsModel->loadMore = [&session] { session.loadMoreHistory(); };
    m_recentsModel->call = [&phone](const QString& number) { phone.dial(number); };
    // Who the user is and who is who change the lines as much as the calls do.
    for (auto signal : {&Session::meChanged, &Session::directoryChanged}) {
        connect(&session, signal, m_recentsModel.get(), &RecentsModel::rebuild);
    }
    connect(&phone, &Phone::registrationUpdated, m_recentsModel.get(), &RecentsModel::rebuild);
    connect(m_recentsModel.get(), &QAbstractItemModel::rowsInserted, this,
            &ShellState::recentChanged);
    connect(m_recentsModel.get(), &QAbstractItemModel::rowsRemoved, this,
            &ShellState::recentChanged);
    connect(m_recentsModel.get(), &QAbstractItemModel::rowsMoved, this, &ShellState::recentChanged);
    connect(m_recentsModel.get(), &QAbstractItemModel::dataChanged, this,
            &ShellState::recentChanged);
    // The names are known once the model is wired.
    m_recentsModel->rebuild();
    // --- queues and conference ---
    m_queuesModel = std::make_unique<QueuesModel>(session);
    m_conferenceModel = std::make_unique<ConferenceModel>(session);
}

bool ShellState::isSection(const QString& name) {
    for (const char* section : sections) {
        if (name == QLatin1String(section)) {
            return true;
        }
    }
    return false;
}

// --- directory ---
void ShellState::bindContacts(PhoneContacts& contacts) {
    m_contactsModel->bind(&contacts);
}
// --- end of directory ---

void ShellState::setSection(const QString& section) {
    if (!isSection(section) || section == m_section) {
        return;
    }
    m_section = section;
    m_settings.setText(QString::fromLatin1(sectionKey), section);
    emit sectionChanged();
}

bool ShellState::alertShown() const {
    return m_phone.hasLastError() || m_session.hasError();
}

QString ShellState::alertMessage() const {
    return m_phone.hasLastError() ? m_phone.lastErrorText() : m_session.errorText();
}

void ShellState::dismissAlert() {
    m_phone.clearLastError();
    m_session.clearError();
}

void ShellState::setKeepInTray(bool keep) {
    if (keep == m_keepInTray) {
        return;
    }
    m_keepInTray = keep;
    m_settings.setBoolean(QString::fromLatin1(keepInTrayKey), keep);
    emit keepInTrayChanged();
}

void ShellState::setTrayShown(bool shown) {
    if (shown == m_trayShown) {
        return;
    }
    m_trayShown = shown;
    emit trayShownChanged();
}

void ShellState::setGlobalShortcuts(bool bound) {
    if (bound == m_globalShortcuts) {
        return;
    }
    m_globalShortcuts = bound;
    emit globalShortcutsChanged();
}

QVariantList ShellState::recent() const {
    QVariantList rows;
    const QDateTime now = m_now();
    for (const RecentsModel::Line& line : m_recentsModel->lines()) {
        if (rows.size() == recentRows) {
            break;
        }
        rows.append(QVariantMap{
            {QStringLiteral("name"), line.title},
            {QStringLiteral("number"), line.item.remote},
            {QStringLiteral("incoming"), line.item.incoming},
            {QStringLiteral("date"), RowText::date(line.item.date, now)},
        });
    }
    return rows;
}

QString ShellState::registrationKind() const {
    switch (m_phone.registration().kind) {
    case Phone::Registration::Kind::off:
        return QStringLiteral("off");
    case Phone::Registration::Kind::registering:
        return QStringLiteral("registering");
    case Phone::Registration::Kind::registered:
        return QStringLiteral("registered");
    case Phone::Registration::Kind::failed:
        break;
    }
    return QStringLiteral("failed");
}

QString ShellState::registrationWordOf(const Phone& phone) {
    switch (phone.registration().kind) {
    case Phone::Registration::Kind::off:
        return tr("Not set up");
    case Phone::Registration::Kind::registering:
        return tr("Connecting…");
    case Phone::Registration::Kind::registered:
        return tr("Online");
    case Phone::Registration::Kind::failed:
        break;
    }
    // The failure's sentence is for the alert, not for the badge.
    return tr("Offline");
}

QString ShellState::rowDate(const QDateTime& date) const {
    return RowText::date(date, m_now());
}

QString ShellState::monogram(const QString& name) const {
    return RowText::monogram(name);
}

QString ShellState::cleanPasted(const QString& text) const {
    return KeypadInput::cleanPasted(text);
}

bool ShellState::isKey(const QString& text) const {
    return text.size() == 1 && KeypadInput::isKey(text.at(0));
}

bool ShellState::canDial(const QString& number) const {
    return KeypadInput::canDial(number, m_phone.isRegistered());
}

QString ShellState::clipboardText() const {
    const QClipboard* clipboard = QGuiApplication::clipboard();
    return clipboard ? clipboard->text() : QString();
}

// --- forwarding editor ---
QString ShellState::forwardingSummaryOf(const std::optional<Forwarding>& forwarding) {
    if (!forwarding) {
        return tr("Off");
    }
    if (forwarding->always) {
        return tr("All calls");
    }
    const int count = int(forwarding->busy.has_value()) + int(forwarding->noAnswer.has_value()) +
                      int(forwarding->offline.has_value());
    // No singular: one rule reads "1 rules".
    return count == 0 ? tr("Off") : tr("%1 rules").arg(count);
}

QString ShellState::forwardingSummary() const {
    if (!m_session.me()) {
        return forwardingSummaryOf(std::nullopt);
    }
    return forwardingSummaryOf(m_session.me()->forwarding);
}

QObject* ShellState::newForwardingDraft() {
    auto* draft = new ForwardingDraft(m_session);
    QQmlEngine::setObjectOwnership(draft, QQmlEngine::JavaScriptOwnership);
    return draft;
}
// --- end of forwarding editor ---
