#include "gui/ui/PictureBox.h"

#include <QImageReader>
#include <QMouseEvent>
#include <QPixmap>

namespace {
// Longest side a preview keeps in memory.
constexpr int MaxSide = 4096;
}

PictureBox::PictureBox(QWidget *parent) : QLabel(parent)
{
    setAlignment(Qt::AlignCenter);
    setMinimumSize(16, 16);
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Ignored);
}

QImage PictureBox::loadPicture(const QString &path)
{
    QImageReader reader(path);
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (size.isValid() && (size.width() > MaxSide || size.height() > MaxSide))
        reader.setScaledSize(size.scaled(MaxSide, MaxSide, Qt::KeepAspectRatio));
    return reader.read();
}

QPixmap PictureBox::fitted(const QImage &image, const QSize &size, bool upscale)
{
    if (image.isNull() || size.isEmpty())
        return QPixmap();
    QSize target = image.size();
    if (upscale || target.width() > size.width() || target.height() > size.height())
        target = target.scaled(size, Qt::KeepAspectRatio);
    if (target == image.size())
        return QPixmap::fromImage(image);
    return QPixmap::fromImage(image.scaled(target, Qt::KeepAspectRatio, Qt::SmoothTransformation));
}

bool PictureBox::setPicture(const QString &path)
{
    const QImage img = loadPicture(path);
    setImage(img, img.isNull() ? QString() : path);
    return !img.isNull();
}

void PictureBox::setImage(const QImage &image, const QString &path)
{
    m_image = image;
    m_path = image.isNull() ? QString() : path;
    refit();
}

void PictureBox::clearPicture()
{
    m_image = QImage();
    m_path.clear();
    clear();
}

void PictureBox::refit()
{
    if (m_image.isNull()) {
        clear();
        return;
    }
    setPixmap(fitted(m_image, contentsRect().size(), m_upscale));
}

void PictureBox::resizeEvent(QResizeEvent *event)
{
    QLabel::resizeEvent(event);
    refit();
}

void PictureBox::mouseReleaseEvent(QMouseEvent *event)
{
    QLabel::mouseReleaseEvent(event);
    if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint()))
        emit clicked();
}

void PictureBox::mouseDoubleClickEvent(QMouseEvent *event)
{
    QLabel::mouseDoubleClickEvent(event);
    if (event->button() == Qt::LeftButton)
        emit doubleClicked();
}
