#pragma once
#include <QImage>
#include <QLabel>
#include <QString>

// A picture display that keeps the whole picture visible: it is scaled down to the box (and, with
// upscaling on, up to fill it), keeping its proportions, and follows the box when it is resized.
class PictureBox : public QLabel {
    Q_OBJECT
public:
    explicit PictureBox(QWidget *parent = nullptr);

    // Loads the file; false (and an empty box) when it is not a picture Qt can read.
    bool setPicture(const QString &path);
    void setImage(const QImage &image, const QString &path);
    void clearPicture();
    void setUpscale(bool on) { m_upscale = on; }
    bool hasPicture() const { return !m_image.isNull(); }
    QString picturePath() const { return m_path; }
    QImage image() const { return m_image; }

    // Reads a picture file; very large pictures are read at a reduced size so that a preview
    // never holds hundreds of megabytes.
    static QImage loadPicture(const QString &path);
    // The picture scaled to fit into size with its proportions kept.
    static QPixmap fitted(const QImage &image, const QSize &size, bool upscale = false);

signals:
    void clicked();
    void doubleClicked();

protected:
    void resizeEvent(QResizeEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;

private:
    void refit();
    QImage m_image;
    QString m_path;
    bool m_upscale = false;
};
