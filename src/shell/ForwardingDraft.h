#pragma once

#include "api/Records.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantList>

class Session;

// The forwarding editor's draft: the four rules, changed together and saved
// in one step. It starts as a copy of the user's rules (or none) and decides
// what each rule reads as, which entries its menu offers, and what a typed
// number becomes; the screen only shows it.
class ForwardingDraft : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString alwaysText READ alwaysText NOTIFY draftChanged)
    Q_PROPERTY(QString busyText READ busyText NOTIFY draftChanged)
    Q_PROPERTY(QString noAnswerText READ noAnswerText NOTIFY draftChanged)
    Q_PROPERTY(QString offlineText READ offlineText NOTIFY draftChanged)
    Q_PROPERTY(bool hasNoAnswer READ hasNoAnswer NOTIFY draftChanged)
    Q_PROPERTY(int afterS READ afterS WRITE setAfterS NOTIFY draftChanged)
    Q_PROPERTY(bool changed READ changed NOTIFY draftChanged)
    Q_PROPERTY(bool saving READ saving NOTIFY savingChanged)
    Q_PROPERTY(bool canSave READ canSave NOTIFY savingChanged)
    Q_PROPERTY(bool hasMailbox READ hasMailbox CONSTANT)
public:
    static constexpr int defaultAfterS = 20;
    static constexpr int minAfterS = 5;
    static constexpr int maxAfterS = 300;
    static constexpr int stepAfterS = 5;

    explicit ForwardingDraft(Session& session, QObject* parent = nullptr);

    const Forwarding& draft() const { return m_draft; }

    // The rules by name: "always", "busy", "noAnswer", "offline".
    std::optional<Target> target(const QString& rule) const;
    void setTarget(const QString& rule, std::optional<Target> target);

    // What a rule reads as in its field.
    Q_INVOKABLE QString text(const QString& rule) const;
    QString alwaysText() const { return text(QStringLiteral("always")); }
    QString busyText() const { return text(QStringLiteral("busy")); }
    QString noAnswerText() const { return text(QStringLiteral("noAnswer")); }
    QString offlineText() const { return text(QStringLiteral("offline")); }
    bool hasNoAnswer() const { return m_draft.noAnswer.has_value(); }
    int afterS() const { return m_draft.noAnswer ? int(m_draft.noAnswer->afterS) : defaultAfterS; }
    // Kept within 5 to 300 seconds.
    void setAfterS(int seconds);
    bool changed() const;
    bool saving() const { return m_saving; }
    bool canSave() const { return !m_saving && changed(); }
    bool hasMailbox() const;

    // The menu's entries for a rule.
    Q_INVOKABLE void turnOff(const QString& rule) { setTarget(rule, std::nullopt); }
    Q_INVOKABLE void toMailbox(const QString& rule);
    Q_INVOKABLE void toHangUp(const QString& rule) { setTarget(rule, Target::hangup()); }
    Q_INVOKABLE void toColleague(const QString& rule, const QString& id, bool group);
    // The number typed for a rule; false (and nothing changed) when it has no digits.
    Q_INVOKABLE bool toNumber(const QString& rule, const QString& typed);
    // The number a rule sends calls to now, to start the typing from.
    Q_INVOKABLE QString numberOf(const QString& rule) const;
    // Only digits and "+" are kept: "0151 234-567" is "0151234567".
    static QString cleanNumber(const QString& typed);

    // People and groups of the directory matching a query, for the picker:
    // each {id, name, extension, group}; the user's own entry is left out.
    Q_INVOKABLE QVariantList colleagues(const QString& query) const;

    // Sends the draft; `saved` says how it went.
    Q_INVOKABLE void save();

signals:
    void draftChanged();
    void savingChanged();
    void saved(bool ok);

private:
    void setSaving(bool saving);

    QPointer<Session> m_session;
    Forwarding m_draft;
    bool m_saving = false;
};
