#pragma once
#include <QObject>
#include <QPointer>

class frmMain;
class frmMessage;

// Opening messages of the grid in the viewer: the View command and toolbar button, the grid's
// double-click and Enter (which call msgActivate), and the viewer's Next and Previous.
class Viewer : public QObject {
    Q_OBJECT
public:
    explicit Viewer(frmMain &m);

    // Opens the grid's selection-end row in the viewer.
    void msgActivate();
    // Moves the selection-end row by delta (+1 Next, -1 Previous) and opens that row; nothing
    // happens beyond the first or the last message row.
    void step(int delta);
    // The selection-end row of the grid (grid numbering, 0 when there is none).
    int selectionEndRow() const;

    frmMessage *window() const;
    frmMessage *ensureWindow();

private:
    void messageCommands(bool on);

    frmMain &m;
    QPointer<frmMessage> m_window;
};
