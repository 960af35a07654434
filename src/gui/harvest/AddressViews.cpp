#include "gui/harvest/AddressViews.h"

#include "harvest/Harvester.h"

#include <QAbstractItemView>
#include <QGroupBox>
#include <QKeyEvent>

AddressViews::AddressViews(Harvester &h, QAbstractItemView *view, QGroupBox *frame, QObject *parent)
    : QObject(parent), harvester(h), m_view(view), m_frame(frame)
{
    connect(view, &QAbstractItemView::doubleClicked, this, [this] { openSelected(); });
    view->installEventFilter(this);
}

void AddressViews::openSelected()
{
    if (m_frame && m_frame->title().startsWith(QLatin1String("Web")))
        harvester.OpenSelectedAddress();
}

bool AddressViews::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_view && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            openSelected();
            return true;
        }
    }
    return QObject::eventFilter(watched, event);
}
