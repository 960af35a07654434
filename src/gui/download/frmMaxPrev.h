#pragma once
#include <QWidget>

class frmMain;
class PictureBox;

// The large image preview: one window that shows the previewed picture scaled to its size and
// steps through the saved-files list with the keyboard.
class frmMaxPrev : public QWidget {
    Q_OBJECT
public:
    explicit frmMaxPrev(frmMain &m);

    // Shows the picture (hidden, replaced, shown again) under the caption "Preview (" name ")".
    void showPicture(const QString &path, const QString &entryText);
    QString picturePath() const;
    QString entryText() const { return m_entry; }
    PictureBox *picture() const { return m_picture; }

    // Keyboard stepping with the classic key codes: 46 Delete, 13 Enter, 32 Space,
    // 33/38 previous entry, 34/40 next entry.
    void SetlPicture(int keyCode);
    static int classicKeyCode(int qtKey);

    // Position and size from "PTop", "PLeft", "PWidth", "PHeight" (twips), kept on the screen.
    void restoreStoredGeometry();
    void storeGeometry();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    frmMain &m;
    PictureBox *m_picture;
    QString m_entry;
    bool m_placed = false;
};
