#pragma once

#include "history/RecentsModel.h"
#include "platform/SettingsStore.h"
#include "session/ConferenceModel.h"
#include "session/ContactsFilter.h"
#include "session/ContactsModel.h"
#include "session/QueuesModel.h"
#include "session/Session.h"
#include "shell/VoicemailPlayer.h"
// --- settings window ---
#include "shell/SettingsState.h"
// --- end of settings window ---

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QVariantList>

#include <functional>
#include <memory>

class Phone;
class Session;

// What the main window and the tray panel read beyond the session and the
// phone: the chosen section (kept in the settings), the one error alert,
// the keep-running setting, the recent calls, and the few words the screens
// need decided in C++. It lives on the main thread beside the windows.
class ShellState : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString section READ section WRITE setSection NOTIFY sectionChanged)
    Q_PROPERTY(bool alertShown READ alertShown NOTIFY alertChanged)
    Q_PROPERTY(QString alertMessage READ alertMessage NOTIFY alertChanged)
    Q_PROPERTY(bool keepInTray READ keepInTray WRITE setKeepInTray NOTIFY keepInTrayChanged)
    Q_PROPERTY(bool trayShown READ trayShown NOTIFY trayShownChanged)
    Q_PROPERTY(bool globalShortcuts READ globalShortcuts NOTIFY globalShortcutsChanged)
    Q_PROPERTY(QVariantList recent READ recent NOTIFY recentChanged)
    Q_PROPERTY(bool hasQueues READ hasQueues NOTIFY badgesChanged)
    Q_PROPERTY(int voicemailBadge READ voicemailBadge NOTIFY badgesChanged)
    Q_PROPERTY(int queuesBadge READ queuesBadge NOTIFY badgesChanged)
    Q_PROPERTY(QString registrationWord READ registrationWord NOTIFY registrationChanged)
    Q_PROPERTY(QString registrationKind READ registrationKind NOTIFY registrationChanged)
    // --- voicemail ---
    Q_PROPERTY(QObject* voicemailPlayer READ voicemailPlayer CONSTANT)
    // --- end of voicemail ---
    // --- forwarding editor ---
    Q_PROPERTY(QString forwardingSummary READ forwardingSummary NOTIFY forwardingChanged)
    // --- end of forwarding editor ---
    // --- call history ---
    Q_PROPERTY(RecentsModel* recents READ recentsModel CONSTANT)
    // --- queues and conference ---
    Q_PROPERTY(QueuesModel* queues READ queuesModel CONSTANT)
    Q_PROPERTY(ConferenceModel* conference READ conferenceModel CONSTANT)
    // --- directory: the address book's people under the company ---
    Q_PROPERTY(ContactsFilter* directoryContacts READ directoryContacts CONSTANT)
    // --- settings window ---
    Q_PROPERTY(SettingsState* settings READ settingsState CONSTANT)
    // --- end of settings window ---
public:
    static constexpr char sectionKey[] = "section";
    // True when absent: closing the window leaves the app running for calls.
    static constexpr char keepInTrayKey[] = "mac.menuBar";
    static constexpr int recentRows = 5;

    ShellState(SettingsStore& settings, Phone& phone, Session& session, QObject* parent = nullptr);

    // One of recents, directory, keypad, voicemail, queues; a stored value
    // that is none of them reads as recents.
    QString section() const { return m_section; }
    void setSection(const QString& section);
    static bool isSection(const QString& name);

    // The alert shows the phone's error first, else the session's.
    bool alertShown() const;
    QString alertMessage() const;
    // "OK" clears both, so a session error behind a phone error is never seen.
    Q_INVOKABLE void dismissAlert();

    bool keepInTray() const { return m_keepInTray; }
    void setKeepInTray(bool keep);
    // Whether a tray icon is up; false where the desktop shows no tray.
    bool trayShown() const { return m_trayShown; }
    void setTrayShown(bool shown);
    // Whether the desktop bound the answer, hang-up and mute shortcuts.
    bool globalShortcuts() const { return m_globalShortcuts; }
    void setGlobalShortcuts(bool bound);

    // The first calls of the merged list: name, number, incoming, date words.
    QVariantList recent() const;
    // --- call history ---
    // The recents screen's rows, and the missed calls not yet looked at.
    RecentsModel* recentsModel() const { return m_recentsModel.get(); }

    // --- queues and conference ---
    // The queues screen's cards and the conference of the call in front.
    QueuesModel* queuesModel() const { return m_queuesModel.get(); }
    ConferenceModel* conferenceModel() const { return m_conferenceModel.get(); }

    // --- server actions: the sidebar's badges and its queues row ---
    bool hasQueues() const { return !m_session.queues().isEmpty(); }
    int voicemailBadge() const { return m_session.unreadVoicemailCount(); }
    int queuesBadge() const { return m_session.queueWaitingTotal(); }
    // --- end of server actions ---
    // --- voicemail ---
    QObject* voicemailPlayer() { return &m_voicemailPlayer; }
    VoicemailPlayer& player() { return m_voicemailPlayer; }
    // --- end of voicemail ---
    // --- forwarding editor ---
    // The settings row's value: "All calls", "Off", or "%1 rules".
    QString forwardingSummary() const;
    static QString forwardingSummaryOf(const std::optional<Forwarding>& forwarding);
    // A new draft of the user's rules for the editor, owned by the caller.
    Q_INVOKABLE QObject* newForwardingDraft();
    // --- end of forwarding editor ---

    // --- directory ---
    // The directory screen's Contacts section over the address book.
    ContactsFilter* directoryContacts() const { return m_directoryContacts.get(); }
    void bindContacts(PhoneContacts& contacts);
    // --- end of directory ---

    // --- settings window ---
    // Starting at login, the own picture, the status lines and the sign-outs.
    SettingsState* settingsState() const { return m_settingsState.get(); }
    // --- end of settings window ---

    // The registration badge: its word, and the kind that picks its colour
    // (off, registering, registered, failed).
    QString registrationWord() const { return registrationWordOf(m_phone); }
    QString registrationKind() const;
    static QString registrationWordOf(const Phone& phone);

    Q_INVOKABLE QString rowDate(const QDateTime& date) const;
    Q_INVOKABLE QString monogram(const QString& name) const;
    Q_INVOKABLE QString cleanPasted(const QString& text) const;
    Q_INVOKABLE bool isKey(const QString& text) const;
    Q_INVOKABLE bool canDial(const QString& number) const;
    // The clipboard's text, empty when it holds none.
    Q_INVOKABLE QString clipboardText() const;

    // Requests the shell carries out; the screens only ask.
    Q_INVOKABLE void openMainWindow() { emit mainWindowRequested(); }
    Q_INVOKABLE void openSettings() { emit settingsRequested(); }
    Q_INVOKABLE void openCallWindow() { emit callWindowRequested(); }
    Q_INVOKABLE void quit() { emit quitRequested(); }

    // The clock the date words are measured against; tests fix it.
    void setNow(std::function<QDateTime()> now) { m_now = std::move(now); }

signals:
    void sectionChanged();
    void alertChanged();
    void keepInTrayChanged();
    void trayShownChanged();
    void globalShortcutsChanged();
    void recentChanged();
    void badgesChanged();
    void registrationChanged();
    void mainWindowRequested();
    void settingsRequested();
    void callWindowRequested();
    void quitRequested();
    // --- forwarding editor ---
    void forwardingChanged();
    // --- end of forwarding editor ---

private:
    SettingsStore& m_settings;
    Phone& m_phone;
    Session& m_session;
    QString m_section;
    bool m_keepInTray = true;
    bool m_trayShown = false;
    bool m_globalShortcuts = false;
    std::function<QDateTime()> m_now;
    // --- voicemail ---
    VoicemailPlayer m_voicemailPlayer;
    // --- end of voicemail ---
    // --- call history ---
    std::unique_ptr<RecentsModel> m_recentsModel;
    // --- queues and conference ---
    std::unique_ptr<QueuesModel> m_queuesModel;
    std::unique_ptr<ConferenceModel> m_conferenceModel;
    // --- settings window ---
    std::unique_ptr<SettingsState> m_settingsState;
    // --- end of settings window ---
    // --- directory ---
    std::unique_ptr<ContactsModel> m_contactsModel;
    std::unique_ptr<ContactsFilter> m_directoryContacts;
    // --- end of directory ---
};
