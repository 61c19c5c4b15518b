#pragma once

#include <QSortFilterProxyModel>
#include <QString>
#include <QStringList>

class ContactsModel;

// The directory screen's Contacts section as the search field narrows it.
// A person stays when their name holds the trimmed query (ignoring case and
// accents), or when the query has at least three digits and the digits of
// one of their numbers hold them. Without access to the address book the
// section is one prompt row while nothing is typed, and gone otherwise.
class ContactsFilter : public QSortFilterProxyModel {
    Q_OBJECT
    Q_PROPERTY(QString query READ query WRITE setQuery NOTIFY queryChanged)
    Q_PROPERTY(int count READ count NOTIFY countChanged)
    Q_PROPERTY(bool authorized READ authorized NOTIFY shownChanged)
    // The prompt row that offers to show the address book.
    Q_PROPERTY(bool promptShown READ promptShown NOTIFY shownChanged)
    // Whether the section has any row at all, the prompt included.
    Q_PROPERTY(bool sectionShown READ sectionShown NOTIFY shownChanged)
public:
    // Fewer digits than this in a query never search the numbers.
    static constexpr int minimumDigits = 3;

    explicit ContactsFilter(QObject* parent = nullptr);

    void setContactsModel(ContactsModel* model);

    const QString& query() const { return m_query; }
    void setQuery(const QString& query);
    int count() const { return rowCount(); }
    bool authorized() const;
    bool promptShown() const { return !authorized() && m_trimmed.isEmpty(); }
    bool sectionShown() const { return authorized() ? count() > 0 : promptShown(); }

    // The prompt's action: the address book is asked to start and read again.
    Q_INVOKABLE void requestAccess();

    // The rule for one person, for lists that do not go through the model:
    // `numberDigits` are the digits of each number, `queryDigits` those of the query.
    static bool matches(const QString& foldedName, const QStringList& numberDigits,
                        const QString& foldedQuery, const QString& queryDigits);

signals:
    void queryChanged();
    void countChanged();
    void shownChanged();

protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;

private:
    ContactsModel* m_model = nullptr;
    QString m_query;
    QString m_trimmed;
    QString m_folded;
    QString m_digits;
};
