#pragma once
#include <QObject>
#include <QStringList>

class ItemList;
class Shell;

// The saved-files list (lstFiles): the decoded files with the icon key of each file type,
// opening and deleting them, and which of them are previewed while preview is on (Preview).
class SavedFiles : public QObject {
    Q_OBJECT
public:
    SavedFiles(Shell &sh, ItemList &files, QObject *parent = nullptr);

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

    // Preview of incoming and clicked pictures (the "Preview" option).
    bool previewOn() const;
    void setPreviewOn(bool on);

    // The theme icon names of a file type, tried in order: its MIME type's, then the text/html one.
    static QStringList iconNamesFor(const QString &fileName);
    // The icon key the list gives a file (the names above, "|" between).
    static QString iconKeyFor(const QString &fileName);

signals:
    // A picture to show in the preview box (and the large preview when that is on).
    void previewWanted(const QString &path, const QString &entryText);
    // A file left the list and the download directory.
    void fileRemoved(const QString &path);

private:
    QString destDir() const;

    Shell &sh;
    ItemList &files;
};
