#pragma once

#include <QSortFilterProxyModel>
#include <QString>

class DirectoryModel;

// The directory as the search field narrows it: a row stays when its name
// holds the trimmed query (ignoring case and accents) or its extension
// begins with it; rows are in section order, then the locale's order of names.
class DirectoryFilter : public QSortFilterProxyModel {
    Q_OBJECT
    Q_PROPERTY(QString query READ query WRITE setQuery NOTIFY queryChanged)
    Q_PROPERTY(int count READ count NOTIFY countChanged)
    // A query is typed and no person, group or flow holds it.
    Q_PROPERTY(bool noResults READ noResults NOTIFY countChanged)
public:
    explicit DirectoryFilter(QObject* parent = nullptr);

    void setDirectoryModel(DirectoryModel* model);

    const QString& query() const { return m_query; }
    void setQuery(const QString& query);
    int count() const { return rowCount(); }
    bool noResults() const { return !m_trimmed.isEmpty() && rowCount() == 0; }

    // The rule for one name and extension, for lists that do not go through the model.
    static bool matches(const QString& foldedName, const QString& extension,
                        const QString& trimmedQuery, const QString& foldedQuery);

signals:
    void queryChanged();
    void countChanged();

protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;
    bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

private:
    DirectoryModel* m_model = nullptr;
    QString m_query;
    QString m_trimmed;
    QString m_folded;
};
