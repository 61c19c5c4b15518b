#include "session/CallStatistics.h"

#include "live/Live.h"
#include "telephony/CallAudio.h"
#include "telephony/Phone.h"

CallStatistics::CallStatistics(Phone& phone, Live& live, QObject* parent)
    : QObject(parent), m_phone(phone), m_live(live) {
    m_timer.setInterval(1000);
    connect(&m_timer, &QTimer::timeout, this, &CallStatistics::refresh);
    connect(&m_phone, &Phone::activeCallChanged, this, &CallStatistics::follow);
    connect(&m_live, &Live::currentCallChanged, this, &CallStatistics::refresh);
    connect(&m_live, &Live::currentLegsChanged, this, &CallStatistics::refresh);
    follow();
}

void CallStatistics::follow() {
    // Only a call wakes the timer: an idle app stays asleep.
    const bool call = m_phone.hasActiveCall();
    if (call != m_timer.isActive()) {
        call ? m_timer.start() : m_timer.stop();
    }
    refresh();
}

void CallStatistics::refresh() {
    const auto& current = m_live.currentCall();
    const auto stats = m_phone.activeStats();
    m_level = CallQuality::level(current ? current->quality : std::nullopt, stats);

    m_serverMos.clear();
    if (const auto worst = CallQuality::worstLeg(m_live.currentLegs());
        worst && worst->quality->mos) {
        m_serverMos = CallQuality::mosText(*worst->quality->mos);
    }
    m_localMos.clear();
    if (stats) {
        if (const auto mos = CallQuality::localMos(*stats)) {
            m_localMos = CallQuality::mosText(*mos);
        }
    }

    m_hasStats = stats.has_value();
    if (stats) {
        m_incomingLoss = CallQuality::lossText(CallQuality::incomingLoss(*stats));
        m_incomingJitter = CallQuality::jitterText(stats->jitterMs);
        m_outgoingLoss = CallQuality::lossText(stats->remoteLoss);
        m_outgoingJitter = CallQuality::jitterText(stats->remoteJitterMs);
        m_roundTrip = CallQuality::roundTripText(stats->roundTripMs);
    } else {
        m_incomingLoss.clear();
        m_incomingJitter.clear();
        m_outgoingLoss.clear();
        m_outgoingJitter.clear();
        m_roundTrip.clear();
    }
    const auto counters = m_phone.activeCounters();
    m_packets = counters ? CallQuality::packetsText(*counters) : QString();
    m_warning =
        m_phone.hasActiveCall() ? m_phone.audio().audioWarning().value_or(QString()) : QString();
    emit updated();
}
