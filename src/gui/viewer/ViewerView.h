#pragma once
#include <QObject>
#include <QPointer>

class frmMain;
class frmMessage;
class SavedFilesView;
class Viewer;

// The viewer's window: made on the first message opened and kept; shows what the Viewer opens.
class ViewerView : public QObject {
    Q_OBJECT
public:
    ViewerView(frmMain &m, Viewer &viewer, SavedFilesView *preview);
    ~ViewerView() override;

    frmMessage *window() const;
    frmMessage *ensureWindow();

private:
    frmMain &m;
    Viewer &viewer;
    SavedFilesView *preview;
    QPointer<frmMessage> m_window;
};
