#include "session/ContactsFilter.h"

#include "history/SearchText.h"
#include "session/ContactsModel.h"

ContactsFilter::ContactsFilter(QObject* parent) : QSortFilterProxyModel(parent) {
    // The book's own order stands; only the filter follows the query.
    setDynamicSortFilter(true);
    const auto counted = [this] {
        emit countChanged();
        emit shownChanged();
    };
    connect(this, &QAbstractItemModel::modelReset, this, counted);
    connect(this, &QAbstractItemModel::rowsInserted, this, counted);
    connect(this, &QAbstractItemModel::rowsRemoved, this, counted);
    connect(this, &QAbstractItemModel::layoutChanged, this, counted);
}

void ContactsFilter::setContactsModel(ContactsModel* model) {
    if (m_model) {
        disconnect(m_model, nullptr, this, nullptr);
    }
    m_model = model;
    setSourceModel(model);
    if (model) {
        connect(model, &ContactsModel::authorizedChanged, this, &ContactsFilter::shownChanged);
    }
    emit shownChanged();
}

bool ContactsFilter::authorized() const {
    return m_model && m_model->authorized();
}

void ContactsFilter::requestAccess() {
    if (m_model && m_model->contacts()) {
        m_model->contacts()->requestAccess();
    }
}

bool ContactsFilter::matches(const QString& foldedName, const QStringList& numberDigits,
                             const QString& foldedQuery, const QString& queryDigits) {
    if (foldedQuery.isEmpty() || SearchText::containsFolded(foldedName, foldedQuery)) {
        return true;
    }
    if (queryDigits.size() < minimumDigits) {
        return false;
    }
    for (const QString& digits : numberDigits) {
        if (digits.contains(queryDigits)) {
            return true;
        }
    }
    return false;
}

void ContactsFilter::setQuery(const QString& query) {
    if (query == m_query) {
        return;
    }
    m_query = query;
    const QString trimmed = query.trimmed();
    if (trimmed != m_trimmed) {
        m_trimmed = trimmed;
        m_folded = SearchText::fold(trimmed);
        m_digits = ContactsModel::digitsOf(trimmed);
        invalidateFilter();
    }
    emit queryChanged();
    emit countChanged();
    emit shownChanged();
}

bool ContactsFilter::filterAcceptsRow(int sourceRow, const QModelIndex&) const {
    if (!m_model || sourceRow >= m_model->rows().size()) {
        return false;
    }
    const auto& row = m_model->rows().at(sourceRow);
    return matches(row.foldedName, row.digits, m_folded, m_digits);
}
