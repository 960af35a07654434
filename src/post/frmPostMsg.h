#pragma once
#include <QWidget>

class frmMain;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QStatusBar;

// The post window: composes a plain-text article and posts it to the current group, to the
// groups selected in the group list, or to the groups of the selected favourites (each on its
// own server). Every attempt is logged in POST.LOG.
class frmPostMsg : public QWidget {
    Q_OBJECT
public:
    // Where the article goes.
    enum Scope { SelectedGroups = 0, SelectedFavorites = 1, CurrentGroup = 2 };

    explicit frmPostMsg(frmMain &m);

    int PostScope = CurrentGroup;
    int ReplyMode = 0;                // 1 while a reply is composed
    QString ReplyReferences;          // References and In-Reply-To of a reply
    QString ReplyInReplyTo;

    // Whether the window may open for PostScope; shows why not.
    bool CheckWindows();
    // OK: validation, then the posting run.
    void OkClicked();
    void cmdPostMessage(const QString &subject, const QString &messageText);
    bool posting() const { return m_posting; }

    QLineEdit *txtName = nullptr;
    QLineEdit *txtEmail = nullptr;
    QLineEdit *txtSubject = nullptr;
    QPlainTextEdit *txtMessage = nullptr;
    QPlainTextEdit *txtSig = nullptr;
    QPushButton *cmdOK = nullptr;
    QPushButton *cmdCancel = nullptr;
    QStatusBar *statbar = nullptr;
    QString status(int panel) const;

signals:
    void closed();   // the window is going (it deletes itself)

protected:
    void closeEvent(QCloseEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void setStatus(int panel, const QString &text);
    void saveFields();
    bool connectTo(const QString &server);
    void logLine(const QString &line);

    frmMain &m;
    QLabel *m_panels[2] = {nullptr, nullptr};
    bool m_posting = false;
    bool m_loading = true;
    bool m_closeAfterRun = false;
};
