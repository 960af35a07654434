#pragma once
#include <QAbstractListModel>
#include <QItemSelectionModel>
#include <QStringList>
#include <QVector>
#include <functional>

// The one list type behind every list of the program: an ordered list of text items, each with
// an optional second text (the server list keeps credentials there) and an optional icon key, a
// per-item selection, find, and save/load to a text file.
//
// Item texts may begin with a marker: the character 255 followed by one digit ("1" has messages,
// "2" listing failed, "4" ...). The marker is kept in the text exactly, but views never show
// the raw character: they show the rest of the text, styled by the marker.
//
// The list holds no pictures, colours or fonts: the windows install a Presentation that turns an
// item's icon key and marker into what a view draws (icons, colours, bold). Without one, views
// get the texts only.
class ItemList : public QAbstractListModel {
    Q_OBJECT
public:
    static constexpr char16_t MarkerChar = 0x00FF;

    explicit ItemList(QObject *parent = nullptr);

    int count() const { return int(m_items.size()); }
    void clear();
    // Adds at the end (pos < 0) or before position pos; returns the new index.
    int add(const QString &text, const QString &second = QString(), int pos = -1);
    void addMany(const QStringList &texts);
    void remove(int index);
    QString text(int index) const;
    void setText(int index, const QString &text);
    QString secondText(int index) const;
    void setSecondText(int index, const QString &second);
    // The key of the item's icon (empty: none). What a key stands for is the Presentation's.
    void setIconKey(int index, const QString &key);
    QString iconKey(int index) const;
    QStringList texts() const;

    int currentIndex() const;
    void setCurrentIndex(int index);
    bool isSelected(int index) const;
    void setSelected(int index, bool selected);
    int selectedCount() const;
    QList<int> selectedIndexes() const;    // ascending
    void selectAll();
    void clearSelection();
    QItemSelectionModel *selectionModel() { return &m_selection; }

    // Exact text, from start; -1 when absent.
    int find(const QString &text, int start = 0) const;
    // Ignoring a leading marker and a trailing " (count)": by bare group name.
    int findGroup(const QString &groupName, int start = 0) const;
    // Favourites: bare group name and the server in the last parentheses.
    int findGroupOnServer(const QString &groupName, const QString &server, int start = 0) const;
    // Server list: the name after the last space.
    int findServer(const QString &serverName, int start = 0) const;

    // One item text per line, UTF-8, in list order. Loading replaces the items.
    bool save(const QString &path) const;
    bool load(const QString &path);
    // As above, each line holding the item text and its second text (escaped, tab between).
    bool saveWithSecond(const QString &path, bool ownerOnly = false) const;
    bool loadWithSecond(const QString &path);

    // Text helpers shared by every list.
    static bool hasMarker(const QString &text);
    static QChar markerDigit(const QString &text);     // '\0' when none
    static QString withoutMarker(const QString &text);
    static QString marked(QChar digit, const QString &text);
    static QString bareGroupName(const QString &text); // drops marker, then keeps text before the first blank
    static QString serverOfFavorite(const QString &text); // text inside the first "(...)", "" when none
    static QString serverNameOf(const QString &text);     // text after the last space

    // What a view draws beyond the text for a role (Qt::DecorationRole, ForegroundRole,
    // FontRole), from the item's icon key and marker digit ('\0' when none).
    using Presentation = std::function<QVariant(int role, const QString &iconKey, QChar marker)>;
    static void setPresentation(Presentation presentation);

    // QAbstractListModel
    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

private:
    static Presentation &presentation();
    struct Item {
        QString text;
        QString second;
        QString iconKey;
    };
    // the first item from start on whose text matches, or -1
    template <class Match>
    int findText(int start, Match &&matches) const
    {
        for (int i = qMax(0, start); i < count(); ++i)
            if (matches(m_items[i].text))
                return i;
        return -1;
    }

    QVector<Item> m_items;
    QItemSelectionModel m_selection;
};
