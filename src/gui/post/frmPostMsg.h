#pragma once
#include <QWidget>

class Poster;
class Shell;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QStatusBar;

// The post window: collects a plain-text article (name, e-mail, subject, text, signature) and
// hands it to the Poster, which posts it to the current group, to the groups selected in the
// group list, or to the groups of the selected favourites; the window shows how the run goes.
class frmPostMsg : public QWidget {
    Q_OBJECT
public:
    frmPostMsg(Shell &sh, Poster &poster, QWidget *parent);

    // OK: validation, then the posting run.
    void OkClicked();
    // The run over the window's name and e-mail with this subject and text.
    void cmdPostMessage(const QString &subject, const QString &messageText);
    bool posting() const;

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
    void buildWidgets();
    void loadFields();
    void setStatus(int panel, const QString &text);
    void saveFields();

    Shell &sh;
    Poster &poster;
    QLabel *m_panels[2] = {nullptr, nullptr};
    bool m_loading = true;
    bool m_closeAfterRun = false;
};
