#include "ui/ItemList.h"
#include "ui/BlockFile.h"
#include "ui/LineReader.h"

#include <QFile>
#include <QSaveFile>
#include <QTextStream>

ItemList::ItemList(QObject *parent)
    : QAbstractListModel(parent), m_selection(this)
{
}

void ItemList::clear()
{
    beginResetModel();
    m_items.clear();
    endResetModel();
}

int ItemList::add(const QString &text, const QString &second, int pos)
{
    if (pos < 0 || pos > count())
        pos = count();
    beginInsertRows(QModelIndex(), pos, pos);
    m_items.insert(pos, Item{text, second, QString()});
    endInsertRows();
    return pos;
}

void ItemList::addMany(const QStringList &texts)
{
    if (texts.isEmpty())
        return;
    const int first = count();
    beginInsertRows(QModelIndex(), first, first + int(texts.size()) - 1);
    m_items.reserve(first + texts.size());
    for (const QString &t : texts)
        m_items.append(Item{t, QString(), QString()});
    endInsertRows();
}

void ItemList::remove(int index)
{
    if (index < 0 || index >= count())
        return;
    beginRemoveRows(QModelIndex(), index, index);
    m_items.remove(index);
    endRemoveRows();
}

QString ItemList::text(int index) const
{
    return index >= 0 && index < count() ? m_items[index].text : QString();
}

void ItemList::setText(int index, const QString &text)
{
    if (index < 0 || index >= count())
        return;
    m_items[index].text = text;
    const QModelIndex mi = this->index(index);
    emit dataChanged(mi, mi);
}

QString ItemList::secondText(int index) const
{
    return index >= 0 && index < count() ? m_items[index].second : QString();
}

void ItemList::setSecondText(int index, const QString &second)
{
    if (index >= 0 && index < count())
        m_items[index].second = second;
}

void ItemList::setIconKey(int index, const QString &key)
{
    if (index < 0 || index >= count())
        return;
    m_items[index].iconKey = key;
    const QModelIndex mi = this->index(index);
    emit dataChanged(mi, mi, {Qt::DecorationRole});
}

QString ItemList::iconKey(int index) const
{
    return index >= 0 && index < count() ? m_items[index].iconKey : QString();
}

QStringList ItemList::texts() const
{
    QStringList out;
    out.reserve(count());
    for (const Item &it : m_items)
        out << it.text;
    return out;
}

int ItemList::currentIndex() const
{
    const QModelIndex c = m_selection.currentIndex();
    return c.isValid() ? c.row() : -1;
}

void ItemList::setCurrentIndex(int index)
{
    if (index < 0 || index >= count())
        m_selection.setCurrentIndex(QModelIndex(), QItemSelectionModel::NoUpdate);
    else
        m_selection.setCurrentIndex(this->index(index), QItemSelectionModel::NoUpdate);
}

bool ItemList::isSelected(int index) const
{
    return index >= 0 && index < count() && m_selection.isRowSelected(index, QModelIndex());
}

void ItemList::setSelected(int index, bool selected)
{
    if (index < 0 || index >= count())
        return;
    m_selection.select(this->index(index),
                       selected ? QItemSelectionModel::Select : QItemSelectionModel::Deselect);
}

int ItemList::selectedCount() const
{
    int n = 0;
    for (const QItemSelectionRange &r : m_selection.selection())
        n += r.height();
    return n;
}

QList<int> ItemList::selectedIndexes() const
{
    QList<int> out;
    for (const QItemSelectionRange &r : m_selection.selection())
        for (int i = r.top(); i <= r.bottom(); ++i)
            out << i;
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
    return out;
}

void ItemList::selectAll()
{
    if (count() == 0)
        return;
    m_selection.select(QItemSelection(index(0), index(count() - 1)), QItemSelectionModel::Select);
}

void ItemList::clearSelection()
{
    m_selection.clearSelection();
}

int ItemList::find(const QString &text, int start) const
{
    return findText(start, [&](const QString &t) { return t == text; });
}

int ItemList::findGroup(const QString &groupName, int start) const
{
    return findText(start, [&](const QString &t) { return bareGroupName(t) == groupName; });
}

int ItemList::findGroupOnServer(const QString &groupName, const QString &server, int start) const
{
    return findText(start, [&](const QString &t) { return bareGroupName(t) == groupName && serverOfFavorite(t) == server; });
}

int ItemList::findServer(const QString &serverName, int start) const
{
    return findText(start, [&](const QString &t) { return serverNameOf(t) == serverName; });
}

static QString stripLineBreaks(QString s)
{
    // an item is one line of its file
    s.replace(QLatin1Char('\r'), QLatin1Char(' '));
    s.replace(QLatin1Char('\n'), QLatin1Char(' '));
    return s;
}

bool ItemList::save(const QString &path) const
{
    BlockFile f(path, 1 << 20);
    if (!f.isOpen())
        return false;
    for (const Item &it : m_items) {
        f.append(stripLineBreaks(it.text).toUtf8());
        f.endLine();
    }
    return f.commit();
}

static QStringList readLines(const QString &path, bool *ok)
{
    LineReader reader(path);
    *ok = reader.isOpen();
    QStringList lines;
    while (!reader.atEnd())
        reader.next([&lines](const char *line, qsizetype size) { lines << QString::fromUtf8(line, size); }, 1 << 20);
    return lines;
}

bool ItemList::load(const QString &path)
{
    bool ok = false;
    const QStringList lines = readLines(path, &ok);
    if (!ok)
        return false;
    beginResetModel();
    m_items.clear();
    m_items.reserve(lines.size());
    for (const QString &l : lines)
        m_items.append(Item{l, QString(), QString()});
    endResetModel();
    return true;
}

static QString escapeField(const QString &s)
{
    QString out;
    out.reserve(s.size());
    for (QChar c : s) {
        switch (c.unicode()) {
        case '\\': out += QLatin1String("\\\\"); break;
        case '\t': out += QLatin1String("\\t"); break;
        case '\n': out += QLatin1String("\\n"); break;
        case '\r': out += QLatin1String("\\r"); break;
        default: out += c;
        }
    }
    return out;
}

static QString unescapeField(const QString &s)
{
    QString out;
    out.reserve(s.size());
    for (qsizetype i = 0; i < s.size(); ++i) {
        const QChar c = s[i];
        if (c != QLatin1Char('\\') || i + 1 >= s.size()) {
            out += c;
            continue;
        }
        const QChar n = s[++i];
        switch (n.unicode()) {
        case 't': out += QLatin1Char('\t'); break;
        case 'n': out += QLatin1Char('\n'); break;
        case 'r': out += QLatin1Char('\r'); break;
        default: out += n;
        }
    }
    return out;
}

bool ItemList::saveWithSecond(const QString &path, bool ownerOnly) const
{
    QSaveFile f(path);
    if (!f.open(QIODevice::WriteOnly))
        return false;
    if (ownerOnly)
        f.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    QByteArray out;
    for (const Item &it : m_items) {
        out += escapeField(it.text).toUtf8();
        out += '\t';
        out += escapeField(it.second).toUtf8();
        out += '\n';
    }
    if (f.write(out) != out.size())
        return false;
    return f.commit();
}

bool ItemList::loadWithSecond(const QString &path)
{
    bool ok = false;
    const QStringList lines = readLines(path, &ok);
    if (!ok)
        return false;
    beginResetModel();
    m_items.clear();
    for (const QString &l : lines) {
        const qsizetype tab = l.indexOf(QLatin1Char('\t'));
        if (tab < 0)
            m_items.append(Item{unescapeField(l), QString(), QString()});
        else
            m_items.append(Item{unescapeField(l.left(tab)), unescapeField(l.mid(tab + 1)), QString()});
    }
    endResetModel();
    return true;
}

bool ItemList::hasMarker(const QString &text)
{
    return !text.isEmpty() && text.at(0).unicode() == MarkerChar;
}

QChar ItemList::markerDigit(const QString &text)
{
    return hasMarker(text) && text.size() > 1 ? text.at(1) : QChar();
}

QString ItemList::withoutMarker(const QString &text)
{
    return hasMarker(text) ? text.mid(2) : text;
}

QString ItemList::marked(QChar digit, const QString &text)
{
    return QString(QChar(MarkerChar)) + digit + text;
}

QString ItemList::bareGroupName(const QString &text)
{
    QString s = withoutMarker(text);
    const qsizetype blank = s.indexOf(QLatin1Char(' '));
    if (blank >= 0)
        s.truncate(blank);
    return s;
}

QString ItemList::serverOfFavorite(const QString &text)
{
    // group " (" server ")" [" (" count ")"]: the server is in the first parentheses
    const QString s = withoutMarker(text);
    const qsizetype open = s.indexOf(QLatin1String(" ("));
    if (open < 0)
        return QString();
    const qsizetype close = s.indexOf(QLatin1Char(')'), open + 2);
    if (close < 0)
        return QString();
    return s.mid(open + 2, close - open - 2).trimmed();
}

QString ItemList::serverNameOf(const QString &text)
{
    const qsizetype sp = text.lastIndexOf(QLatin1Char(' '));
    return sp < 0 ? text : text.mid(sp + 1);
}

ItemList::Presentation &ItemList::presentation()
{
    static Presentation look;
    return look;
}

void ItemList::setPresentation(Presentation p)
{
    presentation() = std::move(p);
}

int ItemList::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : count();
}

QVariant ItemList::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= count())
        return QVariant();
    const Item &it = m_items[index.row()];
    switch (role) {
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
        return withoutMarker(it.text);
    case Qt::EditRole:
        return it.text;
    case Qt::DecorationRole:
    case Qt::ForegroundRole:
    case Qt::FontRole: {
        const Presentation &look = presentation();
        return look ? look(role, it.iconKey, markerDigit(it.text)) : QVariant();
    }
    default:
        return QVariant();
    }
}

Qt::ItemFlags ItemList::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::ItemIsDropEnabled;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled;
}
