#include "app/Core.h"

#include "app/Shell.h"
#include "messages/MessageGrid.h"
#include "ui/ItemList.h"

#include <QItemSelectionModel>

Core::Core(Shell &shell, QObject *parent)
    : QObject(parent),
      lstGroups(new ItemList(this)),
      lstFavorites(new ItemList(this)),
      lstFiles(new ItemList(this)),
      lstHTTP(new ItemList(this)),
      lstMsgBuffer(new ItemList(this)),
      grid(new MessageGrid(this)),
      gridSelection(new QItemSelectionModel(grid, this)),
      m_shell(shell)
{
}

Core::~Core() = default;
