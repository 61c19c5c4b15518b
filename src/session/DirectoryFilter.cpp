#include "session/DirectoryFilter.h"

#include "history/SearchText.h"
#include "session/DirectoryModel.h"

DirectoryFilter::DirectoryFilter(QObject* parent) : QSortFilterProxyModel(parent) {
    // Rows come from the model in its own order; sorting compares ranks only.
    setDynamicSortFilter(true);
    const auto counted = [this] { emit countChanged(); };
    connect(this, &QAbstractItemModel::modelReset, this, counted);
    connect(this, &QAbstractItemModel::rowsInserted, this, counted);
    connect(this, &QAbstractItemModel::rowsRemoved, this, counted);
    connect(this, &QAbstractItemModel::layoutChanged, this, counted);
}

void DirectoryFilter::setDirectoryModel(DirectoryModel* model) {
    m_model = model;
    setSourceModel(model);
    sort(0);
}

bool DirectoryFilter::matches(const QString& foldedName, const QString& extension,
                              const QString& trimmedQuery, const QString& foldedQuery) {
    if (trimmedQuery.isEmpty()) {
        return true;
    }
    return SearchText::containsFolded(foldedName, foldedQuery) ||
           (!extension.isEmpty() && extension.startsWith(trimmedQuery));
}

void DirectoryFilter::setQuery(const QString& query) {
    if (query == m_query) {
        return;
    }
    m_query = query;
    const QString trimmed = query.trimmed();
    if (trimmed != m_trimmed) {
        m_trimmed = trimmed;
        m_folded = SearchText::fold(trimmed);
        invalidateFilter();
    }
    emit queryChanged();
    emit countChanged();
}

bool DirectoryFilter::filterAcceptsRow(int sourceRow, const QModelIndex&) const {
    if (!m_model || sourceRow >= m_model->rows().size()) {
        return false;
    }
    const auto& row = m_model->rows().at(sourceRow);
    return matches(row.foldedName, row.entry.extension_.value_or(QString()), m_trimmed, m_folded);
}

bool DirectoryFilter::lessThan(const QModelIndex& left, const QModelIndex& right) const {
    const auto& rows = m_model->rows();
    return rows.at(left.row()).rank < rows.at(right.row()).rank;
}
