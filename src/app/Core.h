#pragma once
#include <QObject>

class ItemList;
class MessageGrid;
class QItemSelectionModel;
class Shell;

// The program without its windows: the lists and the message grid (models the windows show),
// and the areas that work on them. The main window makes one over its shell; batch runs make
// one over a BatchShell.
class Core : public QObject {
    Q_OBJECT
public:
    explicit Core(Shell &shell, QObject *parent = nullptr);
    ~Core() override;

    Shell &shell() { return m_shell; }

    // The lists, by their classic names.
    ItemList *const lstGroups;
    ItemList *const lstFavorites;
    ItemList *const lstFiles;
    ItemList *const lstHTTP;
    ItemList *const lstMsgBuffer;   // hidden helper list
    // The message grid and its selection (shared with the grid's view).
    MessageGrid *const grid;
    QItemSelectionModel *const gridSelection;

private:
    Shell &m_shell;
};
