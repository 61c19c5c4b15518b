// The session's part in this computer's calls. Joining the two calls into a
// conference: the phone system does the joining; this side only names the two
// server calls, found through the SIP Call-IDs of the user's own legs, and the
// conference then arrives through the live updates. And the figures of the
// call in front, from the engine and from the server.

#include "session/Session.h"

#include "session/CallStatistics.h"
#include "session/TransferMatches.h"

#include "api/Json.h"
#include "platform/Log.h"
#include "telephony/Phone.h"

namespace {

// The first of the user's calls with a leg of this SIP call.
std::optional<QString> serverCallOf(const QString& sipCallId, const live::Calls& calls) {
    for (const auto& call : calls) {
        if (!call.myLegs) {
            continue;
        }
        for (const auto& leg : *call.myLegs) {
            if (leg.sipCallId == sipCallId) {
                return call.id;
            }
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<Session::MergePair> Session::mergePair(const std::optional<QString>& activeSipCallId,
                                                     const std::optional<QString>& heldSipCallId,
                                                     const live::Calls& calls) {
    if (!activeSipCallId || !heldSipCallId) {
        return std::nullopt;
    }
    const auto active = serverCallOf(*activeSipCallId, calls);
    const auto held = serverCallOf(*heldSipCallId, calls);
    if (!active || !held) {
        return std::nullopt;
    }
    return MergePair{*active, *held};
}

std::optional<Session::MergePair> Session::mergeTargets() const {
    if (!m_phone || !m_phone->activeCall() || !m_phone->heldCall()) {
        return std::nullopt;
    }
    const auto& active = *m_phone->activeCall();
    const auto& held = *m_phone->heldCall();
    // A held call keeps the status connected; held is a flag of its own.
    if (active.status != Phone::ActiveCall::Status::connected ||
        held.status != Phone::ActiveCall::Status::connected) {
        return std::nullopt;
    }
    return mergePair(m_phone->sipCallId(active.uuid), m_phone->sipCallId(held.uuid),
                     m_live->myCalls());
}

Answer Session::strictAnswer(const QString& path, const API::Reply& reply) {
    try {
        return decode<Answer>(reply.body);
    } catch (const std::exception& e) {
        Log::error(Log::api,
                   QStringLiteral("%1: HTTP %2, unexpected body: %3 (%4)")
                       .arg(path)
                       .arg(reply.status)
                       .arg(QString::fromUtf8(reply.body.left(300)), QString::fromUtf8(e.what())));
        throw API::Failure::http(
            reply.status, tr("Unexpected answer from %1. Is the server up to date?").arg(path));
    }
}

QCoro::Task<> Session::mergeCalls() {
    const auto pair = mergeTargets();
    if (!pair) {
        co_return;
    }
    const QString path = QStringLiteral("api/calls/") + pair->active + QStringLiteral("/merge");
    const QByteArray body = QByteArray::fromStdString(MergeBody{pair->held}.toJson().dump());
    QPointer<Session> self(this);
    auto api = m_api;
    try {
        const auto reply = co_await api->request(path, "POST", body);
        strictAnswer(path, reply);
        // The conference comes through the live updates; its id is not kept.
    } catch (...) {
        if (self) {
            self->setError(failureText(std::current_exception()));
        }
    }
}

void Session::mergeCallsFromScreen() {
    mergeCalls();
}

bool Session::canMerge() const {
    return mergeTargets().has_value();
}

void Session::watchMergeTargets() {
    connect(m_live.get(), &Live::myCallsChanged, this, &Session::mergeTargetsChanged,
            Qt::UniqueConnection);
    if (m_phone) {
        connect(m_phone, &Phone::activeCallChanged, this, &Session::mergeTargetsChanged,
                Qt::UniqueConnection);
        connect(m_phone, &Phone::heldCallChanged, this, &Session::mergeTargetsChanged,
                Qt::UniqueConnection);
    }
    emit mergeTargetsChanged();
}

QObject* Session::callStatisticsObject() const {
    return m_callStatistics.get();
}

void Session::makeCallStatistics() {
    if (!m_phone) {
        m_callStatistics.reset();
    } else {
        m_callStatistics = std::make_unique<CallStatistics>(*m_phone, *m_live);
    }
    emit callStatisticsChanged();
}

QVariantList Session::transferMatches(const QString& query) const {
    QVariantList rows;
    if (!m_directory) {
        if (const auto number = TransferMatches::typedNumber(query)) {
            rows.append(QVariantMap{{QStringLiteral("name"), *number},
                                    {QStringLiteral("number"), *number},
                                    {QStringLiteral("typed"), true}});
        }
        return rows;
    }
    for (const auto& row : TransferMatches::of(*m_directory, m_me ? m_me->id : QString(), query)) {
        rows.append(QVariantMap{{QStringLiteral("name"), row.name},
                                {QStringLiteral("number"), row.number},
                                {QStringLiteral("typed"), row.typed}});
    }
    return rows;
}
