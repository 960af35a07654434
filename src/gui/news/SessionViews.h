#pragma once
#include <QObject>

class frmMain;
class NewsSession;

// What the main window shows of the session beyond the shell: the group list's heading and
// the preview box go back to their empty look when a session closes, and the window's own
// connection test asks the session.
class SessionViews : public QObject {
    Q_OBJECT
public:
    SessionViews(frmMain &w, NewsSession &session);
};
