#include "gui/viewer/ViewerView.h"

#include "gui/app/frmMain.h"
#include "gui/viewer/frmMessage.h"
#include "messages/MessageGrid.h"
#include "viewer/Viewer.h"

#include <QTableView>

ViewerView::ViewerView(frmMain &main, Viewer &v, SavedFilesView *previews)
    : QObject(&main), m(main), viewer(v), preview(previews)
{
    connect(&viewer, &Viewer::messageOpening, this,
            [this](const ViewedMessage &msg) { ensureWindow()->showOpening(msg); });
    connect(&viewer, &Viewer::messageLoaded, this,
            [this](const ViewedMessage &msg) { ensureWindow()->showMessage(msg); });
    connect(&viewer, &Viewer::rowShown, this,
            [this](int row) { m.MSHResults->scrollTo(m.grid->index(row - 1, 0)); });
}

ViewerView::~ViewerView()
{
    delete m_window;
}

frmMessage *ViewerView::window() const
{
    return m_window;
}

frmMessage *ViewerView::ensureWindow()
{
    if (!m_window)
        m_window = new frmMessage(m, viewer, preview);
    return m_window;
}
