#pragma once
#include <QImage>
#include <QObject>
#include <QPointer>

class frmMain;
class frmMaxPrev;
class QAction;
class QGroupBox;
class SavedFiles;

// The saved-files list's view and the picture previews: the preview box Picture1 in the
// "Image Preview" frame, the large preview window, the two preview commands and the list's
// keys, clicks and double-clicks. The list and its files are SavedFiles'.
class SavedFilesView : public QObject {
    Q_OBJECT
public:
    SavedFilesView(frmMain &m, SavedFiles &files);
    ~SavedFilesView() override;

    // The commands.
    void TogglePreview();          // menuPreview, after its check mark flipped
    void ToggleLargePreview();     // menuPreviewL, after its check mark flipped
    bool previewOn() const;
    bool largePreviewChecked() const;
    // Checks the large preview command and shows the picture there.
    void openLarge(const QString &path);

    // The preview box: shows a picture file (false when it cannot be read) or nothing.
    bool showInPreviewBox(const QString &path);
    void clearPreviewBox();
    QString previewPath() const { return m_previewPath; }
    QImage previewImage() const { return m_previewImage; }
    QGroupBox *framePreview() const { return m_frame; }

    // Opens (or refreshes) the large preview with a picture.
    void showLargePreview(const QString &path, const QString &entryText);
    frmMaxPrev *largePreview() const;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildPreviewFrame();
    void showPreview(const QString &path, const QString &entryText);
    void fileRemoved(const QString &path);
    bool listKeyPressed(int key, Qt::KeyboardModifiers modifiers);
    void refitPreview();
    void syncPreviewState();

    frmMain &m;
    SavedFiles &files;
    QAction *m_preview = nullptr;
    QAction *m_large_action = nullptr;
    QGroupBox *m_frame = nullptr;
    QPointer<frmMaxPrev> m_large;
    QString m_previewPath;
    QImage m_previewImage;
};
