#pragma once
#include <QWidget>
#include <functional>
#include <memory>

class frmMain;
class PictureBox;
class SavedFilesView;
class Viewer;
struct ViewedMessage;
class QAction;
class QGroupBox;
class QLineEdit;
class QMenuBar;
class QPlainTextEdit;
class QPrinter;
class QSplitter;

// The message viewer: subject, date and sender of one grid row, the message text (at most 10000
// characters) and, for a picture attachment with preview on, the picture.
class frmMessage : public QWidget {
    Q_OBJECT
public:
    frmMessage(frmMain &m, Viewer &viewer, SavedFilesView *preview);
    ~frmMessage() override;

    static constexpr int TextLimit = 10000;
    static constexpr double MinWidthTwips = 5745;
    static constexpr double MinHeightTwips = 4500;

    QLineEdit *txtTitle = nullptr;
    QLineEdit *txtDate = nullptr;
    QLineEdit *txtEmail = nullptr;
    QPlainTextEdit *txtMsgBody = nullptr;
    QGroupBox *frameBody = nullptr;
    QGroupBox *frameTitle = nullptr;
    PictureBox *Image1 = nullptr;
    QMenuBar *menuBar = nullptr;

    qint64 ViewArticleNumber = 0;
    bool ViewerShown = false;
    // The row's Message-ID and References, for a reply that threads under the message.
    QString MessageId;
    QString References;

    // A row is being opened: its fields (the text follows with showMessage).
    void showOpening(const ViewedMessage &message);
    // The article came: its text, the window, its picture (while preview is on).
    void showMessage(const ViewedMessage &message);
    void SaveViewerGeometry();

    // The commands of the viewer's menu.
    void Next();
    void Previous();
    void Print();
    void Copy();
    void Reply();
    void MailSender();

    // What Print puts on paper.
    QString printText() const;
    // Prints onto a printer; false when the printer cannot be used.
    bool printTo(QPrinter &printer) const;
    // The printer Print uses: the default one, or none. Tests put a file printer here.
    std::function<std::unique_ptr<QPrinter>()> printerFactory;

    // The bare address of a sender: inside angle brackets, else the token that holds "@".
    static QString mailAddress(const QString &sender);
    // "mailto:" with the percent-encoded address; empty when the sender has no address.
    static QString mailtoTarget(const QString &sender);

    QAction *action(const QString &name) const;

signals:
    void closed();

protected:
    void changeEvent(QEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void placeFromStore();
    void showText(const QString &text);
    void showPicture(const QString &path);
    void updateReplyState();

    frmMain &m;
    Viewer &viewer;
    SavedFilesView *preview;
    QSplitter *m_split = nullptr;
};
