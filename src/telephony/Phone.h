#pragma once

#include "audio/AudioBackend.h"
#include "core/Core.h"
#include "history/Recents.h"
#include "platform/Clock.h"
#include "platform/SettingsStore.h"
#include "telephony/Account.h"
#include "telephony/PushBookkeeping.h"

#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QString>
#include <QUuid>
#include <QVariantMap>

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class CallAudio;
class CoreEvents;

// The one object through which the app telephones: it registers the account
// with the phone system through the engine, turns the engine's events into
// the call the screens show, brings call audio up and down, and writes every
// call into the recents. It lives on the main thread for the whole run.
class Phone : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString registration READ registrationText NOTIFY registrationUpdated)
    Q_PROPERTY(bool registered READ isRegistered NOTIFY registrationUpdated)
    Q_PROPERTY(bool startingCall READ startingCall NOTIFY startingCallChanged)
    Q_PROPERTY(QVariantMap activeCall READ activeCallMap NOTIFY activeCallChanged)
    Q_PROPERTY(bool hasActiveCall READ hasActiveCall NOTIFY activeCallChanged)
    Q_PROPERTY(QVariantMap heldCall READ heldCallMap NOTIFY heldCallChanged)
    Q_PROPERTY(QString activeSipCallId READ activeSipCallIdText NOTIFY activeSipCallIdChanged)
    Q_PROPERTY(
        bool callMinimized READ callMinimized WRITE setCallMinimized NOTIFY callMinimizedChanged)
    Q_PROPERTY(QString lastError READ lastErrorText NOTIFY lastErrorChanged)
    Q_PROPERTY(bool hasLastError READ hasLastError NOTIFY lastErrorChanged)
public:
    struct Registration {
        enum class Kind { failed, off, registering, registered };
        Kind kind = Kind::off;
        QString text; // failed: the sentence for the user

        static Registration failed(QString why) { return {Kind::failed, std::move(why)}; }
        static Registration off() { return {Kind::off, {}}; }
        static Registration registering() { return {Kind::registering, {}}; }
        static Registration registered() { return {Kind::registered, {}}; }
        // "off", "registering", "registered", "failed: <sentence>".
        QString toString() const;
        bool operator==(const Registration&) const = default;
    };

    struct ActiveCall {
        enum class Status { calling, ringing, incoming, connected };

        QUuid uuid;
        QString remote;
        std::optional<QString> remoteName;
        bool incoming = false;
        Status status = Status::calling;
        std::optional<QDateTime> connectedAt;
        bool muted = false;
        bool speaker = false; // carried, never changed
        bool held = false;
        bool transferring = false;

        static QString statusName(Status status);
        // uuid, number, name, status, muted, outgoing, connectedAt (ISO 8601, empty while
        // unconnected), held, transferring.
        QVariantMap toMap() const;
        bool operator==(const ActiveCall&) const = default;
    };

    using ClientFactory = std::function<std::shared_ptr<core::SipClient>(
        const core::SipAccount&, std::shared_ptr<core::ClientDelegate>)>;
    using NameLookup = std::function<std::optional<QString>(const QString&)>;

    static constexpr char notConnectedText[] = "Not connected to the phone system.";

    // The account starts as the built-in one; the app loads the stored one
    // into it before the session starts.
    Phone(SettingsStore& settings, std::shared_ptr<AudioBackend> audioBackend,
          Clock& clock = Clock::system(), QObject* parent = nullptr);
    ~Phone() override;

    // Hooks the app sets.
    NameLookup colleagueName;
    NameLookup contactName;
    std::function<void()> onCallEnded;

    // How the engine's client is made; tests give a fake engine.
    void setClientFactory(ClientFactory factory) { m_clientFactory = std::move(factory); }
    // An extra authority for the phone system's TLS certificate (the setting "sip.caFile").
    void setCaFile(std::optional<QString> path) { m_caFile = std::move(path); }

    const Registration& registration() const { return m_registration; }
    QString registrationText() const { return m_registration.toString(); }
    bool isRegistered() const { return m_registration.kind == Registration::Kind::registered; }
    bool startingCall() const { return m_startingCall; }
    const std::optional<ActiveCall>& activeCall() const { return m_activeCall; }
    QVariantMap activeCallMap() const {
        return m_activeCall ? m_activeCall->toMap() : QVariantMap();
    }
    bool hasActiveCall() const { return m_activeCall.has_value(); }
    const std::optional<ActiveCall>& heldCall() const { return m_heldCall; }
    QVariantMap heldCallMap() const { return m_heldCall ? m_heldCall->toMap() : QVariantMap(); }
    const std::optional<QString>& activeSipCallId() const { return m_activeSipCallId; }
    QString activeSipCallIdText() const { return m_activeSipCallId.value_or(QString()); }
    bool callMinimized() const { return m_callMinimized; }
    void setCallMinimized(bool minimized);
    const std::optional<QString>& lastError() const { return m_lastError; }
    QString lastErrorText() const { return m_lastError.value_or(QString()); }
    bool hasLastError() const { return m_lastError.has_value(); }
    // Every present value is also logged, also when it repeats.
    void setLastError(std::optional<QString> error);
    Q_INVOKABLE void clearLastError() { setLastError(std::nullopt); }

    const Account& account() const { return m_account; }
    // Changes nothing else: stop() and start() make it take effect.
    void setAccount(Account account);

    Recents& recents() { return *m_recents; }
    CallAudio& audio() { return *m_audio; }
    // --- push bookkeeping ---
    const PushBookkeeping& push() const { return m_push; }
    PushBookkeeping& push() { return m_push; }
    // --- end of push bookkeeping ---
    const std::shared_ptr<core::SipClient>& client() const { return m_client; }
    const std::shared_ptr<CoreEvents>& events() const { return m_events; }
    const QHash<QUuid, std::shared_ptr<core::Call>>& calls() const { return m_calls; }
    const std::optional<QString>& pendingDial() const { return m_pendingDial; }

    // Registration.
    void start();
    void stop();
    void wake();
    // The machine resumed or the network came back: the engine registers on
    // a new connection and moves the calls there (it follows address changes
    // by itself; a resume it cannot see).
    void networkChanged();
    static QString describe(std::exception_ptr error);

    // Calls.
    Q_INVOKABLE void dial(const QString& number);
    Q_INVOKABLE void dialOrQueue(const QString& number);
    Q_INVOKABLE void answer();
    void hangUp(const QUuid& uuid);
    // --- call history ---
    // The last call ended from this side: a call declined here is not a missed one.
    const std::optional<QUuid>& lastHungUpHere() const { return m_lastHungUpHere; }
    void setMuted(const QUuid& uuid, bool muted);
    bool sendDigits(const QUuid& uuid, const QString& digits);
    std::optional<ActiveCall> callInfo(const QUuid& uuid) const;
    std::optional<QString> sipCallId(const QUuid& uuid) const;
    std::optional<core::CallStats> activeStats() const;
    // [packets in, packets out, microphone frames, audio restarts] of the call
    // in front, for the statistics panel.
    std::optional<std::vector<std::int64_t>> activeCounters() const;

    // --- two calls: hold, swap, transfer ---
    // Asks the engine to hold or resume; false when the call has no engine
    // call or the engine refused (lastError says why).
    bool setHold(const ActiveCall& call, bool on);
    Q_INVOKABLE void toggleHold();
    Q_INVOKABLE void swap();
    // Blind: the call in front is handed to the target by the engine's REFER.
    Q_INVOKABLE void transfer(const QString& target);
    Q_INVOKABLE void setActiveHold(bool on);

    // For the screens, acting on the call in front.
    Q_INVOKABLE void hangUpActive();
    Q_INVOKABLE void setActiveMuted(bool muted);
    Q_INVOKABLE bool sendActiveDigits(const QString& digits);

    // The engine's events, on the main thread (through CoreEvents).
    void registrationChanged(const core::RegistrationState& state);
    void incomingCall(std::shared_ptr<core::Call> call);
    void callStateChanged(const std::string& sipCallId, const core::CallState& state);

signals:
    void registrationUpdated();
    void startingCallChanged();
    void activeCallChanged();
    void heldCallChanged();
    void activeSipCallIdChanged();
    void callMinimizedChanged();
    void lastErrorChanged();
    void accountChanged();
    // Each time a call has been wound up, after onCallEnded.
    void callWoundUp(const QUuid& uuid);

private:
    void setRegistration(Registration registration);
    void setStartingCall(bool starting);
    void setActiveCall(std::optional<ActiveCall> call);
    void setHeldCall(std::optional<ActiveCall> call);
    void refreshActiveSipCallId();
    void writeCall(const ActiveCall& call);
    std::optional<QString> lookupName(const QString& number) const;
    bool placeCall(const QUuid& uuid, const QString& number);
    void failDial(const QString& number, const QString& sentence);
    void startAudio();
    bool answerCall(const QUuid& uuid);
    void callEnded(const QUuid& uuid, const QString& reason);
    std::optional<QUuid> uuidOf(const std::string& sipCallId) const;
    core::SipAccount sipAccount() const;

    Clock& m_clock;
    ClientFactory m_clientFactory;
    std::optional<QString> m_caFile;

    Registration m_registration;
    bool m_startingCall = false;
    std::optional<ActiveCall> m_activeCall;
    std::optional<ActiveCall> m_heldCall;
    std::optional<QString> m_activeSipCallId;
    bool m_callMinimized = false;
    std::optional<QString> m_lastError;
    std::unique_ptr<Recents> m_recents;
    // --- call history ---
    std::optional<QUuid> m_lastHungUpHere;
    Account m_account;
    std::shared_ptr<core::SipClient> m_client;
    std::shared_ptr<CoreEvents> m_events;
    QHash<QUuid, std::shared_ptr<core::Call>> m_calls;
    std::optional<QString> m_pendingDial;
    std::shared_ptr<CallAudio> m_audio;
    // --- push bookkeeping (inert on the desktop) ---
    PushBookkeeping m_push;
    // --- end of push bookkeeping ---
};
