#include "session/ContactsModel.h"

#include "history/SearchText.h"

#include <QMimeDatabase>

ContactsModel::ContactsModel(QObject* parent) : QAbstractListModel(parent) {}

void ContactsModel::bind(PhoneContacts* contacts) {
    if (m_contacts) {
        disconnect(m_contacts, nullptr, this, nullptr);
    }
    m_contacts = contacts;
    if (contacts) {
        connect(contacts, &PhoneContacts::peopleChanged, this,
                [this] { setPeople(m_contacts->people()); });
        connect(contacts, &PhoneContacts::authorizedChanged, this,
                &ContactsModel::authorizedChanged);
    }
    setPeople(contacts ? contacts->people() : QList<PhoneContacts::Person>());
    emit authorizedChanged();
}

QString ContactsModel::digitsOf(const QString& text) {
    QString digits;
    for (const QChar c : text) {
        if (c.isNumber()) {
            digits.append(c);
        }
    }
    return digits;
}

QString ContactsModel::subtitleOf(const QStringList& numbers) {
    if (numbers.isEmpty()) {
        return {};
    }
    if (numbers.size() == 1) {
        return numbers.first();
    }
    return tr("%1 +%2").arg(numbers.first()).arg(numbers.size() - 1);
}

QString ContactsModel::thumbnailUrlOf(const std::optional<QByteArray>& thumbnail) {
    if (!thumbnail || thumbnail->isEmpty()) {
        return {};
    }
    // The book hands over JPEG or PNG bytes; the address names which, and
    // the image reads them in place without a provider of its own.
    static const QMimeDatabase types;
    const QString type = types.mimeTypeForData(*thumbnail).name();
    return QStringLiteral("data:%1;base64,").arg(type) + QString::fromLatin1(thumbnail->toBase64());
}

void ContactsModel::setPeople(const QList<PhoneContacts::Person>& people) {
    QList<Row> rows;
    rows.reserve(people.size());
    for (const auto& person : people) {
        Row row{person, SearchText::fold(person.name), {}, thumbnailUrlOf(person.thumbnail)};
        for (const QString& number : person.numbers) {
            row.digits.append(digitsOf(number));
        }
        rows.append(std::move(row));
    }
    beginResetModel();
    m_rows = std::move(rows);
    endResetModel();
}

int ContactsModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_rows.size());
}

QVariant ContactsModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= m_rows.size()) {
        return {};
    }
    const Row& row = m_rows.at(index.row());
    const auto& person = row.person;
    switch (role) {
    case Qt::DisplayRole:
    case NameRole:
        return person.name;
    case SubtitleRole:
        return subtitleOf(person.numbers);
    case NumbersRole:
        return person.numbers;
    case DirectNumberRole:
        // One number is dialled at once; several are offered to choose from.
        return person.numbers.size() == 1 ? person.numbers.first() : QString();
    case ThumbnailRole:
        return row.thumbnailUrl;
    case PersonIdRole:
        return person.id;
    default:
        return {};
    }
}

QHash<int, QByteArray> ContactsModel::roleNames() const {
    return {
        {NameRole, "name"},           {SubtitleRole, "subtitle"},
        {NumbersRole, "numbers"},     {DirectNumberRole, "directNumber"},
        {ThumbnailRole, "thumbnail"}, {PersonIdRole, "personId"},
    };
}
