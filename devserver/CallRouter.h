#pragma once

#include "Model.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace rzdev {

// Where the proxy sends a new call, in the words kamailio's script reads:
// fields separated by "|".
struct RouteAnswer {
    std::string text;
};

// What a call step changed in the model, for the server to publish.
struct CallChanges {
    std::vector<std::string> upserted; // live call ids, in the order they changed
    std::vector<std::pair<std::string, std::string>> ended; // (owner, live call id)
    std::vector<std::pair<std::string, Json>> legs;         // (live call id, leg)
    std::vector<std::string> presence;                      // user ids whose presence changed
    std::optional<std::string> recorded;                    // a SIP call that left a message
    std::vector<std::string> boards;                        // queues whose board changed
};

// One SIP dialog as the proxy reported it.
struct SipDialog {
    std::string sipCallId;
    std::string callerTag;      // the From tag, which names the caller's side at the relay
    std::string callerUserId;   // empty for a caller that is no user
    std::string callerDeviceId; // the caller's device, when it is one
    Json from;                  // Party
    Json to;                    // Party
    std::string dialled;
    std::vector<std::string> calleeUserIds; // the users whose devices ring
    std::string groupId;
    std::string flowId;            // set when the number was a call flow's
    std::string queueId;           // set when the number was a line that feeds a queue
    std::string state = "ringing"; // ringing, connected
    qint64 startMs = 0;
    qint64 answerMs = 0;
    std::string answeredByUserId;
    std::string mailbox; // set when the call went to a mailbox
    bool recorderAnswered = false;
    bool presented = false; // the callee sees `from` in place of the caller's own SIP identity
    int failCode = 0;
    std::map<std::string, std::string> liveIds; // user id -> live call id
};

// The phone system's view of calls: which devices a dialled number reaches,
// and how each step of a real dialog shows in the dashboard's model (live
// calls, presence, call log). No sockets here; kamailio's questions and
// reports arrive through the server.
class CallRouter {
public:
    struct Targets {
        std::string recorderUri; // the voicemail recorder; "%box" stands for the mailbox
        int noAnswerMs = 20000;
    };

    CallRouter(Model& model, Targets targets) : m_model(model), m_targets(std::move(targets)) {}
    void setTargets(Targets targets) { m_targets = std::move(targets); }

    // A new INVITE: from the device with this SIP user name, to the dialled text.
    RouteAnswer route(const std::string& sipCallId, const std::string& fromSipUser,
                      const std::string& fromName, const std::string& dialled, CallChanges& changes,
                      const std::string& callerTag = {});
    // Nobody answered in time: the mailbox's recorder, or "none".
    RouteAnswer unanswered(const std::string& sipCallId, CallChanges& changes);

    void ringing(const std::string& sipCallId, CallChanges& changes);
    void answered(const std::string& sipCallId, const std::string& bySipUser, CallChanges& changes);
    void failed(const std::string& sipCallId, int code, CallChanges& changes);
    void ended(const std::string& sipCallId, CallChanges& changes);

    const std::map<std::string, SipDialog>& dialogs() const { return m_dialogs; }
    SipDialog* dialog(const std::string& sipCallId);
    // The SIP dialog behind a live call id.
    SipDialog* dialogOfLive(const std::string& liveId);
    // The last dialogs that reached a mailbox, by SIP Call-ID, until the message is filed.
    std::optional<SipDialog> takeVoicemail(const std::string& sipCallId);

    // The next call this SIP user places comes from outside, presented as this number.
    void presentNextCallAs(const std::string& sipUser, const std::string& number);
    // How the callee is shown the caller of a dialog: "NUMBER|NAME", or nothing
    // when the caller's own identity stands.
    std::optional<std::string> presentation(const std::string& sipCallId) const;

    // Digits of a dialled text ("sip:201@host", "+49 30 555201" → "201", "+4930555201").
    static std::string normalise(const std::string& dialled);

private:
    const Device* device(const std::string& sipUser) const;
    void finish(SipDialog& dialog, CallChanges& changes);
    void publishAll(SipDialog& dialog, CallChanges& changes);
    Json liveCall(const SipDialog& dialog, const std::string& userId) const;
    void setPresence(const std::string& userId, const std::string& state, CallChanges& changes);
    void addLogRow(const SipDialog& dialog, const std::string& userId, qint64 endMs);
    void queueStep(SipDialog& dialog, CallChanges& changes);
    std::string recorderFor(const std::string& mailbox) const;

    Model& m_model;
    Targets m_targets;
    std::map<std::string, SipDialog> m_dialogs;
    std::map<std::string, SipDialog> m_voicemail;
    std::map<std::string, std::string> m_presentAs; // SIP user -> outside number
};

} // namespace rzdev
