#pragma once

#include "api/API.h"
#include "api/Records.h"
#include "history/CallHistory.h"
#include "live/Live.h"
#include "platform/Clock.h"
#include "platform/SecureStore.h"
#include "platform/SettingsStore.h"
#include "session/AvatarCache.h"
#include "session/DirectoryFilter.h"
#include "session/DirectoryModel.h"
#include "session/ActionRules.h"
#include "telephony/Account.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>
#include <QVariantList>

#include <QCoro/QCoroTask>

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>

class CallStatistics;
class Phone;
class AvatarFlight;

// The signed-in state of the whole app: which dashboard, who the user is,
// whether the browser sign-in is under way, and what the screens show from
// the server. It lives on the main thread; every screen observes it.
class Session : public QObject {
    Q_OBJECT
    Q_PROPERTY(State state READ state NOTIFY stateChanged)
    Q_PROPERTY(QString stateName READ stateName NOTIFY stateChanged)
    Q_PROPERTY(QString error READ errorText NOTIFY errorChanged)
    Q_PROPERTY(bool hasError READ hasError NOTIFY errorChanged)
    Q_PROPERTY(QUrl server READ server NOTIFY serverChanged)
    Q_PROPERTY(QString serverText READ serverText NOTIFY serverChanged)
    Q_PROPERTY(QString userName READ userName NOTIFY meChanged)
    Q_PROPERTY(Live* live READ liveObject CONSTANT)
    // --- directory ---
    Q_PROPERTY(bool hasDirectory READ hasDirectory NOTIFY directoryChanged)
    Q_PROPERTY(QString directoryError READ directoryErrorText NOTIFY directoryErrorChanged)
    Q_PROPERTY(bool hasDirectoryError READ hasDirectoryError NOTIFY directoryErrorChanged)
    Q_PROPERTY(QString meId READ meId NOTIFY meChanged)
    // The directory screen's list, searched and sorted.
    Q_PROPERTY(DirectoryFilter* directoryList READ directoryList CONSTANT)
    // --- merge ---
    Q_PROPERTY(bool canMerge READ canMerge NOTIFY mergeTargetsChanged)
    // --- call statistics ---
    Q_PROPERTY(QObject* callStatistics READ callStatisticsObject NOTIFY callStatisticsChanged)
    // --- server actions ---
    Q_PROPERTY(bool dnd READ dnd NOTIFY meChanged)
    Q_PROPERTY(bool hasMe READ hasMe NOTIFY meChanged)
    Q_PROPERTY(bool hasVoicemailBox READ hasVoicemailBox NOTIFY meChanged)
    Q_PROPERTY(QVariantList voicemail READ voicemailRows NOTIFY voicemailChanged)
    Q_PROPERTY(bool voicemailLoaded READ voicemailLoaded NOTIFY voicemailChanged)
    Q_PROPERTY(QString voicemailError READ voicemailErrorText NOTIFY voicemailChanged)
    Q_PROPERTY(int unreadVoicemailCount READ unreadVoicemailCount NOTIFY voicemailChanged)
    Q_PROPERTY(bool canRecord READ canRecord NOTIFY canRecordChanged)
    // --- end of server actions ---
    // --- call history ---
    Q_PROPERTY(CallHistory* history READ historyObject CONSTANT)
public:
    enum class State { loading, signedOut, signingIn, signedIn };
    Q_ENUM(State)

    // The browser sign-in in progress.
    struct PendingAuth {
        QUrl url;
        QString verifier;
        QString state;
    };

    static constexpr char serverKey[] = "rz.server";
    static constexpr char deviceIdKey[] = "rz.deviceId";
    static const QUrl defaultServer;
    // Left over from development, never shown to a user.
    static const QUrl developmentServer;

    Session(SettingsStore& settings, SecureStore& secrets, Clock& clock = Clock::system(),
            QObject* parent = nullptr);
    ~Session() override;

    State state() const { return m_state; }
    QString stateName() const;
    const std::optional<Me>& me() const { return m_me; }
    QString userName() const { return m_me ? m_me->name : QString(); }
    const std::optional<Directory>& directory() const { return m_directory; }
    const std::optional<QString>& error() const { return m_error; }
    QString errorText() const { return m_error.value_or(QString()); }
    bool hasError() const { return m_error.has_value(); }
    const QUrl& server() const { return m_server; }
    QString serverText() const { return m_server.toString(); }
    API& api() { return *m_api; }
    // The live updates of this session; one for the life of the Session.
    Live& live() { return *m_live; }
    Live* liveObject() { return m_live.get(); }
    const std::optional<PendingAuth>& pendingAuth() const { return m_pendingAuth; }

    // The phone this session provisions, wakes and stops; the app gives it once.
    void setPhone(Phone* phone) {
        m_phone = phone;
        watchMergeTargets();
        makeCallStatistics();
    }
    Phone* phone() const { return m_phone; }

    // How the browser is opened; the shell gives the desktop's. False when it could not be.
    void setOpenBrowser(std::function<bool(const QUrl&)> open) { m_openBrowser = std::move(open); }

    // Writes the text for the screens; a present value is also logged.
    void setError(std::optional<QString> error);
    Q_INVOKABLE void clearError() { setError(std::nullopt); }

    // At launch: signed in at once when a refresh token is kept, then enter().
    QCoro::Task<> restore();
    Q_INVOKABLE void chooseServer(const QUrl& url);
    // The login screen's "Other server": spaces and tabs trimmed, text without a scheme ignored.
    Q_INVOKABLE void chooseServerText(const QString& text);
    Q_INVOKABLE void signIn();
    Q_INVOKABLE void cancelSignIn();
    // The URL the desktop hands over after the browser sign-in.
    QCoro::Task<> handleRedirect(QUrl url);
    // The one path into a working client, after a restore and after a sign-in.
    QCoro::Task<> enter();
    QCoro::Task<> signOut(bool removeDevice);
    // Revokes the sign-in on the server and keeps the device for the next one.
    QCoro::Task<> signOutKeepingDevice();
    Q_INVOKABLE void signOutFromScreen(bool removeDevice);
    Q_INVOKABLE void signOutKeepingDeviceFromScreen();
    void resetLocal();

    // Makes this computer one of the user's phones: asks the server for a
    // device, keeps its SIP credentials and restarts the phone with them.
    QCoro::Task<> provisionDevice();
    // This computer's id towards the server, made once and kept through every sign-out.
    QCoro::Task<QString> installId();
    // The first edge whose transport is "tcp" or "tls", in the server's order.
    static std::optional<AppDevice::Edge> chooseEdge(const QList<AppDevice::Edge>& edges);

    void setDirectory(std::optional<Directory> directory);
    // The colleague a number belongs to: an extension exactly, or a direct
    // number whose last 10 digits agree (at least 6 of them).
    std::optional<Directory::Entry> colleague(const QString& number) const;
    // The colleague's name, else a ring group's with that extension.
    std::optional<QString> colleagueName(const QString& number) const;

    // The text a failure shows to the user: the API's one rule for it.
    static QString failureText(std::exception_ptr failure) { return API::describe(failure); }
    // The last 10 digits of a number.
    static QString numberKey(const QString& number);

    // --- directory ---
    bool hasDirectory() const { return m_directory.has_value(); }
    const std::optional<QString>& directoryError() const { return m_directoryError; }
    QString directoryErrorText() const { return m_directoryError.value_or(QString()); }
    bool hasDirectoryError() const { return m_directoryError.has_value(); }
    // The entity tag of the directory shown; kept in memory only, so the
    // first read after a launch is unconditional.
    const std::optional<QString>& directoryETag() const { return m_directoryETag; }
    QString meId() const { return m_me ? m_me->id : QString(); }
    // How many directory replies were decoded: an unchanged directory decodes none.
    int directoryDecodes() const { return m_directoryDecodes; }
    // Reads the directory, conditionally when a tag is kept. Never fails: a
    // failure shows in directoryError and the older directory stays.
    QCoro::Task<> refreshDirectory();
    Q_INVOKABLE void reloadDirectory();
    // A picture's bytes from memory, the disk cache or the server; none when
    // it could not be had. Callers asking at once for one picture share one download.
    QCoro::Task<std::optional<QByteArray>> avatarData(AvatarRef ref);
    // Pictures at hand; never shrinks, and survives a sign-out.
    const QHash<AvatarRef, QByteArray>& avatarImages() const { return m_avatarImages; }
    AvatarCache& avatarCache() { return m_avatarCache; }
    // The user's own picture, a JPEG; a failure shows in error.
    QCoro::Task<> uploadAvatar(QByteArray jpeg);
    QCoro::Task<> deleteAvatar();
    // The directory as rows for lists; the directory screen's own search over it.
    DirectoryModel* directoryModel() { return m_directoryModel.get(); }
    DirectoryFilter* directoryList() { return m_directoryList.get(); }
    // --- end of directory ---
    // --- merge ---
    // The server calls of the call in front and of the held one.
    struct MergePair {
        QString active;
        QString held;
        bool operator==(const MergePair&) const = default;
    };
    // Both calls connected and each found among the user's calls by a leg of
    // its SIP call; otherwise none, and a merge does nothing.
    std::optional<MergePair> mergeTargets() const;
    static std::optional<MergePair> mergePair(const std::optional<QString>& activeSipCallId,
                                              const std::optional<QString>& heldSipCallId,
                                              const live::Calls& calls);
    bool canMerge() const;
    // Asks the server to join the two calls; a failure goes to error.
    QCoro::Task<> mergeCalls();
    Q_INVOKABLE void mergeCallsFromScreen();
    // The merge's reply, or a failure whose text says the server answered
    // something this app cannot read.
    static Answer strictAnswer(const QString& path, const API::Reply& reply);

    // --- call statistics ---
    // The figures of the call in front, for the call window; there once a phone is given.
    CallStatistics* callStatistics() const { return m_callStatistics.get(); }
    QObject* callStatisticsObject() const;
    // --- transfer sheet ---
    // Rows {name, number, typed} of the directory for what was typed.
    Q_INVOKABLE QVariantList transferMatches(const QString& query) const;

    static constexpr char installService[] = "net.velnor.rz.install";
    static constexpr char installAccount[] = "id";

    // --- server actions (SessionActions.cpp) ---
    using AgentFlags = ::AgentFlags;

    bool dnd() const { return m_me && m_me->dnd.value_or(false); }
    bool hasMe() const { return m_me.has_value(); }
    bool hasVoicemailBox() const { return m_me && m_me->voicemailBoxId.has_value(); }
    const QList<VoicemailMessage>& voicemail() const { return m_voicemail; }
    bool voicemailLoaded() const { return m_voicemailLoaded; }
    const std::optional<QString>& voicemailError() const { return m_voicemailError; }
    QString voicemailErrorText() const { return m_voicemailError.value_or(QString()); }
    int unreadVoicemailCount() const;
    const QList<QueueMembership>& queues() const { return m_queues; }
    // The messages as the voicemail screen lists them, each with its title.
    QVariantList voicemailRows() const;
    // The name an address-book entry gives a number; the shell sets it.
    std::function<std::optional<QString>(const QString&)> contactName;
    // The title of a message's line: a colleague, a contact, the number, or "Unknown caller".
    Q_INVOKABLE QString callerTitle(const QString& caller) const;

    // Sends the four rules; true when the server took them (me then holds its reply).
    QCoro::Task<bool> saveForwarding(Forwarding forwarding);
    QCoro::Task<> setDnd(bool on);
    QCoro::Task<> refreshVoicemail();
    QCoro::Task<> setRead(QString id, bool read);
    QCoro::Task<> deleteVoicemail(QString id);
    // The message's sound as a local file, fetched once; failures go to the caller.
    QCoro::Task<QString> voicemailAudio(QString id);
    static QString voicemailAudioPath(const QString& id);
    QCoro::Task<> refreshQueues();
    QCoro::Task<> setAgent(QString queue, std::optional<bool> loggedIn, std::optional<bool> paused);
    AgentFlags agentFlags(const QueueMembership& membership) const;
    int queueWaitingTotal() const;
    bool canRecord() const;
    QCoro::Task<> setRecording(bool on);
    // The conference this computer's call is in; each does nothing without one.
    QCoro::Task<> addParticipant(QString number);
    QCoro::Task<> setMuted(QString participant, bool muted);
    QCoro::Task<> removeParticipant(QString participant);
    QCoro::Task<> setLocked(bool locked);
    QCoro::Task<> endConference();

    // The same for the screens, which do not wait.
    Q_INVOKABLE void setDndFromScreen(bool on);
    Q_INVOKABLE void refreshVoicemailFromScreen();
    Q_INVOKABLE void setReadFromScreen(const QString& id, bool read);
    Q_INVOKABLE void deleteVoicemailFromScreen(const QString& id);
    Q_INVOKABLE void setRecordingFromScreen(bool on);
    // --- end of server actions ---
    // --- call history ---
    // The server's call log merged with this computer's calls; one for the life of the Session.
    CallHistory& history() { return *m_history; }
    CallHistory* historyObject() { return m_history.get(); }
    // The first page of the call log, asked of the current API.
    QCoro::Task<> loadHistory();
    QCoro::Task<> loadMoreHistory();
    // After a call ends: waits for the server to write the call's row, then
    // loads the first page again.
    static constexpr std::chrono::milliseconds historyReloadDelay{1500};
    QCoro::Task<> reloadHistoryAfterCall();
    // The signed-in user as the call log sees them: from api/me and the phone's SIP user.
    CallHistory::Owner historyOwner() const;
    // --- end of call history ---

signals:
    void stateChanged();
    void errorChanged();
    void serverChanged();
    void meChanged();
    void directoryChanged();
    // --- directory ---
    void directoryErrorChanged();
    // A picture came into avatarImages.
    void avatarImageAdded(const QString& url, const QString& version);
    // --- merge ---
    void mergeTargetsChanged();
    // --- call statistics ---
    void callStatisticsChanged();
    // --- server actions ---
    void voicemailChanged();
    void queuesChanged();
    void canRecordChanged();
    // --- end of server actions ---

private:
    void setState(State state);
    void watchMergeTargets();
    void makeCallStatistics();
    void setMe(std::optional<Me> me);
    QCoro::Task<> completeSignIn(QUrl url, PendingAuth pending);
    static QUrl savedServer(const SettingsStore& settings);
    // Where Live connects, asked of the current API each time; a Session that is gone is signed
    // out.
    static QCoro::Task<API::LiveConnection> liveConnection(QPointer<Session> session);

    SettingsStore& m_settings;
    SecureStore& m_secrets;
    Clock& m_clock;
    // Requested when the Session ends: a wait on the clock ends with it.
    std::stop_source m_ending;

    State m_state = State::loading;
    std::optional<Me> m_me;
    std::optional<Directory> m_directory;
    std::optional<QString> m_error;
    QUrl m_server;
    std::shared_ptr<API> m_api;
    std::optional<PendingAuth> m_pendingAuth;
    std::function<bool(const QUrl&)> m_openBrowser;
    std::unique_ptr<Live> m_live;
    Phone* m_phone = nullptr;

    // --- directory ---
    void setDirectoryError(std::optional<QString> error);
    QCoro::Task<std::optional<QByteArray>> fetchAvatar(AvatarRef ref);

    std::optional<QString> m_directoryError;
    std::optional<QString> m_directoryETag;
    int m_directoryDecodes = 0;
    QHash<AvatarRef, QByteArray> m_avatarImages;
    QHash<AvatarRef, std::shared_ptr<AvatarFlight>> m_avatarTasks;
    AvatarCache m_avatarCache;
    std::unique_ptr<DirectoryModel> m_directoryModel;
    std::unique_ptr<DirectoryFilter> m_directoryList;
    // --- call statistics ---
    std::unique_ptr<CallStatistics> m_callStatistics;
    // --- server actions ---
    void connectActions();
    void setVoicemail(QList<VoicemailMessage> messages);
    void setVoicemailLoaded(bool loaded);
    void setVoicemailError(std::optional<QString> error);
    void setQueues(QList<QueueMembership> queues);
    // Sends a record and drops the reply.
    QCoro::Task<API::Reply> send(QString path, QByteArray method, QByteArray body);

    QList<VoicemailMessage> m_voicemail;
    bool m_voicemailLoaded = false;
    std::optional<QString> m_voicemailError;
    QList<QueueMembership> m_queues;
    // --- end of server actions ---
    // --- call history ---
    std::unique_ptr<CallHistory> m_history = std::make_unique<CallHistory>();
};
