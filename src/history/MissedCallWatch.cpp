#include "history/MissedCallWatch.h"

MissedCallWatch::MissedCallWatch(Recents& recents, QObject* parent)
    : QObject(parent), m_recents(recents) {
    for (const Recents::Entry& entry : recents.entries()) {
        m_known.insert(entry.id);
    }
    connect(&recents, &Recents::entriesChanged, this, &MissedCallWatch::look);
}

bool MissedCallWatch::isMissed(const Recents::Entry& entry) {
    return entry.incoming && !entry.answered && entry.inProgress != true && !entry.failure;
}

void MissedCallWatch::look() {
    QSet<QUuid> alive;
    QSet<QUuid> known;
    for (const Recents::Entry& entry : m_recents.entries()) {
        known.insert(entry.id);
        if (entry.inProgress == true) {
            alive.insert(entry.id);
            continue;
        }
        // Just ended here, or turned away without ever ringing.
        const bool justEnded = m_alive.contains(entry.id) || !m_known.contains(entry.id);
        if (justEnded && isMissed(entry)) {
            emit missed(entry);
        }
    }
    m_known = std::move(known);
    m_alive = std::move(alive);
}
