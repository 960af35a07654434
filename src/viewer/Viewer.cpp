#include "viewer/Viewer.h"

#include "app/frmMain.h"
#include "messages/MessageGrid.h"
#include "news/Session.h"
#include "viewer/frmMessage.h"

#include <QItemSelectionModel>
#include <QLineEdit>
#include <QTableView>

Viewer::Viewer(frmMain &main) : QObject(&main), m(main)
{
    m.wireCommand(QStringLiteral("menuView"), [this] { msgActivate(); });
}

frmMessage *Viewer::ensureWindow()
{
    if (!m_window)
        m_window = new frmMessage(m);
    return m_window;
}

int Viewer::selectionEndRow() const
{
    QTableView *view = m.MSHResults;
    if (!view || !view->selectionModel())
        return 0;
    const QModelIndex cur = view->selectionModel()->currentIndex();
    if (cur.isValid())
        return cur.row() + 1;
    const QModelIndexList rows = view->selectionModel()->selectedRows();
    int end = 0;
    for (const QModelIndex &i : rows)
        end = qMax(end, i.row() + 1);
    return end;
}

void Viewer::messageCommands(bool on)
{
    for (int code : {7, 8, 9, 3, 5})
        m.SetMenuState(code, on);
    m.MenuOnOff(QStringLiteral("CG"), on);
    m.MenuOnOff(QStringLiteral("SM"), on);
}

void Viewer::msgActivate()
{
    const int row = selectionEndRow();
    if (row < 1 || row >= m.grid->Rows())
        return;
    if (m.S.DownloadBusy || (m.session && m.session->transactionRunning())
        || (m_window && m_window->loading())) {
        m.setStatus(2, QStringLiteral("Please wait until current transaction is finished"));
        return;
    }
    const QString number = m.grid->cell(row, 0).trimmed();
    if (number.isEmpty())
        return;

    messageCommands(false);
    frmMessage *w = ensureWindow();
    w->ViewArticleNumber = number.toLongLong();
    w->txtTitle->setText(m.grid->cell(row, 2));
    w->txtDate->setText(m.grid->cell(row, 1));
    w->txtEmail->setText(m.grid->cell(row, 3));
    w->txtTitle->setCursorPosition(0);
    w->txtEmail->setCursorPosition(0);
    w->MessageId = m.grid->cell(row, 5);
    w->References = m.grid->cell(row, 7);
    w->msgActivate();
    // a failed fetch leaves no viewer up; a picture that failed to decode leaves the text shown,
    // and closing the viewer gives the commands back
    if (m.S.TransportError != 0 && !w->isVisible())
        messageCommands(true);
}

void Viewer::step(int delta)
{
    const int end = selectionEndRow();
    const int target = end + delta;
    if (end < 1 || target < 1 || target > m.grid->lastMessageRow())
        return;
    QItemSelectionModel *sel = m.MSHResults->selectionModel();
    const QModelIndex idx = m.grid->index(target - 1, 0);
    sel->setCurrentIndex(idx, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    m.MSHResults->scrollTo(idx);
    msgActivate();
}

frmMessage *Viewer::window() const
{
    return m_window;
}
