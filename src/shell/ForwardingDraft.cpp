#include "shell/ForwardingDraft.h"

#include "history/SearchText.h"
#include "session/Session.h"

#include <QCollator>
#include <QVariantMap>

#include <QCoro/QCoroTask>

#include <algorithm>

namespace {

const Directory::Entry* find(const QList<Directory::Entry>& entries, const QString& id) {
    for (const auto& entry : entries) {
        if (entry.id == id) {
            return &entry;
        }
    }
    return nullptr;
}

} // namespace

ForwardingDraft::ForwardingDraft(Session& session, QObject* parent)
    : QObject(parent), m_session(&session) {
    if (session.me() && session.me()->forwarding) {
        m_draft = *session.me()->forwarding;
    }
}

std::optional<Target> ForwardingDraft::target(const QString& rule) const {
    if (rule == u"always") {
        return m_draft.always;
    }
    if (rule == u"busy") {
        return m_draft.busy;
    }
    if (rule == u"noAnswer") {
        return m_draft.noAnswer ? std::optional(m_draft.noAnswer->target) : std::nullopt;
    }
    if (rule == u"offline") {
        return m_draft.offline;
    }
    return std::nullopt;
}

void ForwardingDraft::setTarget(const QString& rule, std::optional<Target> target) {
    if (rule == u"always") {
        m_draft.always = target;
    } else if (rule == u"busy") {
        m_draft.busy = target;
    } else if (rule == u"noAnswer") {
        if (!target) {
            // Off forgets the ringing time: on again starts from 20 s.
            m_draft.noAnswer.reset();
        } else {
            const qint64 after = m_draft.noAnswer ? m_draft.noAnswer->afterS : defaultAfterS;
            m_draft.noAnswer = Forwarding::NoAnswer{after, *target};
        }
    } else if (rule == u"offline") {
        m_draft.offline = target;
    } else {
        return;
    }
    emit draftChanged();
    emit savingChanged();
}

QString ForwardingDraft::text(const QString& rule) const {
    const auto t = target(rule);
    if (!t) {
        return tr("Off");
    }
    const Directory* directory =
        m_session && m_session->directory() ? &*m_session->directory() : nullptr;
    auto named = [&](const QList<Directory::Entry> Directory::*list,
                     const QString& fallback) -> QString {
        if (directory) {
            if (const auto* entry = find(directory->*list, t->value())) {
                return entry->name;
            }
        }
        return fallback;
    };
    switch (t->kind()) {
    case Target::Kind::voicemail:
        return tr("My voicemail");
    case Target::Kind::hangup:
        return tr("Hang up");
    case Target::Kind::external:
        return t->value();
    case Target::Kind::user:
        return named(&Directory::users, tr("Colleague"));
    case Target::Kind::group:
        return named(&Directory::groups, tr("Group"));
    case Target::Kind::flow:
        return named(&Directory::flows, tr("Call flow"));
    }
    return {};
}

void ForwardingDraft::setAfterS(int seconds) {
    if (!m_draft.noAnswer) {
        return;
    }
    // The stepper's own steps: 5 to 300 in fives.
    const int stepped = (std::clamp(seconds, minAfterS, maxAfterS) / stepAfterS) * stepAfterS;
    if (stepped != m_draft.noAnswer->afterS) {
        m_draft.noAnswer->afterS = stepped;
        emit draftChanged();
        emit savingChanged();
    }
}

bool ForwardingDraft::changed() const {
    static const Forwarding none;
    const Me* me = m_session && m_session->me() ? &*m_session->me() : nullptr;
    const Forwarding& saved = me && me->forwarding ? *me->forwarding : none;
    return !(m_draft == saved);
}

bool ForwardingDraft::hasMailbox() const {
    return m_session && m_session->hasVoicemailBox();
}

void ForwardingDraft::toMailbox(const QString& rule) {
    if (!hasMailbox()) {
        return;
    }
    setTarget(rule, Target::voicemail(*m_session->me()->voicemailBoxId));
}

void ForwardingDraft::toColleague(const QString& rule, const QString& id, bool group) {
    setTarget(rule, group ? Target::group(id) : Target::user(id));
}

QString ForwardingDraft::cleanNumber(const QString& typed) {
    QString kept;
    for (const QChar c : typed) {
        if (c.isDigit() || c == u'+') {
            kept.append(c);
        }
    }
    return kept;
}

bool ForwardingDraft::toNumber(const QString& rule, const QString& typed) {
    const QString number = cleanNumber(typed);
    if (number.isEmpty()) {
        return false;
    }
    setTarget(rule, Target::external(number));
    return true;
}

QString ForwardingDraft::numberOf(const QString& rule) const {
    const auto t = target(rule);
    return t && t->kind() == Target::Kind::external ? t->value() : QString();
}

QVariantList ForwardingDraft::colleagues(const QString& query) const {
    QVariantList rows;
    if (!m_session || !m_session->directory()) {
        return rows;
    }
    const auto& directory = *m_session->directory();
    const QString myId = m_session->me() ? m_session->me()->id : QString();
    const QString trimmed = query.trimmed();
    const QString wanted = SearchText::fold(trimmed);
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    auto section = [&](const QList<Directory::Entry>& entries, bool group) {
        QList<const Directory::Entry*> hits;
        for (const auto& entry : entries) {
            if (!group && entry.id == myId) {
                continue;
            }
            if (wanted.isEmpty() || SearchText::fold(entry.name).contains(wanted) ||
                entry.extension_.value_or(QString()).startsWith(trimmed)) {
                hits.append(&entry);
            }
        }
        std::sort(hits.begin(), hits.end(), [&](const auto* a, const auto* b) {
            return collator.compare(a->name, b->name) < 0;
        });
        for (const auto* entry : hits) {
            rows.append(
                QVariantMap{{QStringLiteral("id"), entry->id},
                            {QStringLiteral("name"), entry->name},
                            {QStringLiteral("extension"), entry->extension_.value_or(QString())},
                            {QStringLiteral("group"), group}});
        }
    };
    section(directory.users, false);
    section(directory.groups, true);
    return rows;
}

namespace {

QCoro::Task<> sendDraft(QPointer<ForwardingDraft> self, QPointer<Session> session, Forwarding draft,
                        std::function<void(bool)> done) {
    const bool ok = co_await session->saveForwarding(draft);
    if (self) {
        done(ok);
    }
}

} // namespace

void ForwardingDraft::save() {
    if (!m_session || m_saving) {
        return;
    }
    setSaving(true);
    sendDraft(this, m_session, m_draft, [this](bool ok) {
        setSaving(false);
        emit saved(ok);
    });
}

void ForwardingDraft::setSaving(bool saving) {
    if (saving != m_saving) {
        m_saving = saving;
        emit savingChanged();
    }
}
