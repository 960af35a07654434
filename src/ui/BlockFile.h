#pragma once
#include <QByteArray>
#include <QSaveFile>

// A file written through a memory block that goes to disk each time it grows past blockSize.
// The file replaces the old one only when commit() succeeds; dropping the object without a
// commit leaves the old file as it was.
class BlockFile {
public:
    BlockFile(const QString &path, qsizetype blockSize) : m_file(path), m_blockSize(blockSize)
    {
        m_ok = m_file.open(QIODevice::WriteOnly);
        m_block.reserve(blockSize);
    }

    bool isOpen() const { return m_ok; }
    QSaveFile &file() { return m_file; }

    void append(const QByteArray &bytes) { m_block += bytes; }
    void append(const char *data, qsizetype size) { m_block.append(data, size); }
    void append(char c) { m_block += c; }

    // Ends a line; the block goes to disk when it is full.
    void endLine(const char *eol = "\n")
    {
        m_block += eol;
        if (m_block.size() >= m_blockSize)
            flush();
    }

    bool commit()
    {
        flush();
        return m_ok && m_file.commit();
    }
    void cancel() { m_file.cancelWriting(); }

private:
    void flush()
    {
        if (m_ok && !m_block.isEmpty())
            m_ok = m_file.write(m_block) == m_block.size();
        m_block.resize(0);
    }

    QSaveFile m_file;
    QByteArray m_block;
    qsizetype m_blockSize;
    bool m_ok = false;
};
