#pragma once
#include <QIcon>
#include <QImage>
#include <QObject>
#include <QPointer>
#include <QStringList>

class frmMain;
class frmMaxPrev;
class QAction;
class QGroupBox;

// The saved-files list (lstFiles) with the icon of each file type, the preview box Picture1 in
// the "Image Preview" frame, the large preview window and the two preview commands.
class SavedFiles : public QObject {
    Q_OBJECT
public:
    explicit SavedFiles(frmMain &m);

    // A picture by its name: the upper-cased text holds .GIF, .TMP, .JPG, .JPEG, .PCX, .WMA or
    // .BMP anywhere.
    static bool IsImageFile(const QString &text);

    // Adds a decoded file (a name, or a path whose file name is taken) at the end with the icon
    // of its type, unless the list has it already; refreshes "Saved Files (n)".
    void AddSavedFile(const QString &path);
    // After a decoded file: previews it when it is a picture and preview is on.
    void PreviewFile(const QString &path);

    // List events.
    void ClickEntry();             // previews the current entry
    void OpenSelected();           // double-click, Enter
    void RemoveSelected();         // Delete: removes the entries and deletes their files
    void SelectCurrentIfNone();    // Space

    // The commands.
    void TogglePreview();          // menuPreview, after its check mark flipped
    void ToggleLargePreview();     // menuPreviewL, after its check mark flipped
    bool previewOn() const;
    bool largePreviewChecked() const;

    // The preview box: shows a picture file (false when it cannot be read) or nothing.
    bool showInPreviewBox(const QString &path);
    void clearPreviewBox();
    QString previewPath() const { return m_previewPath; }
    QImage previewImage() const { return m_previewImage; }
    QGroupBox *framePreview() const { return m_frame; }

    // Opens (or refreshes) the large preview with a picture.
    void showLargePreview(const QString &path, const QString &entryText);
    frmMaxPrev *largePreview() const;

    // The icon of a file type: the theme icon of its MIME type, else the text/html one.
    static QIcon iconForFile(const QString &fileName);
    // The theme names tried in order for a file name (the last one is the text/html icon).
    static QStringList iconNamesFor(const QString &fileName);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QString destDir() const;
    void refitPreview();
    void syncPreviewState();

    frmMain &m;
    QAction *m_preview = nullptr;
    QAction *m_large_action = nullptr;
    QGroupBox *m_frame = nullptr;
    QPointer<frmMaxPrev> m_large;
    QString m_previewPath;
    QImage m_previewImage;
};
