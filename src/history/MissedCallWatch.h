#pragma once

#include "history/Recents.h"

#include <QObject>
#include <QSet>
#include <QUuid>

// Tells when a call to this computer has just gone unanswered: one that rang
// here and ended without being taken, or one turned away while another call
// was on. Calls already in the store when it starts are never told again.
class MissedCallWatch : public QObject {
    Q_OBJECT
public:
    explicit MissedCallWatch(Recents& recents, QObject* parent = nullptr);

    // Whether an entry is a finished incoming call nobody answered here.
    static bool isMissed(const Recents::Entry& entry);

signals:
    void missed(const Recents::Entry& entry);

private:
    void look();

    Recents& m_recents;
    // Calls seen so far, and those of them still alive when last seen.
    QSet<QUuid> m_known;
    QSet<QUuid> m_alive;
};
