#pragma once

#include "api/API.h"
#include "api/Records.h"
#include "history/CallHistory.h"
#include "live/Live.h"
#include "platform/Clock.h"
#include "platform/SecureStore.h"
#include "platform/SettingsStore.h"
#include "telephony/Account.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <QCoro/QCoroTask>

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>

class Phone;

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
    void setPhone(Phone* phone) { m_phone = phone; }
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

    // The text a failure shows to the user.
    static QString failureText(std::exception_ptr failure);
    // The last 10 digits of a number.
    static QString numberKey(const QString& number);

    static constexpr char installService[] = "net.velnor.rz.install";
    static constexpr char installAccount[] = "id";

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

private:
    void setState(State state);
    void setMe(std::optional<Me> me);
    QCoro::Task<> completeSignIn(QUrl url, PendingAuth pending);
    static QUrl savedServer(const SettingsStore& settings);
    // Where Live connects, asked of the current API each time; a Session that is gone is signed
    // out.
    static QCoro::Task<API::LiveConnection> liveConnection(QPointer<Session> session);

    SettingsStore& m_settings;
    SecureStore& m_secrets;
    Clock& m_clock;

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
    // --- call history ---
    std::unique_ptr<CallHistory> m_history = std::make_unique<CallHistory>();
};
