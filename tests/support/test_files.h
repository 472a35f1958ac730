#pragma once
// Small file helpers for tests: write a file (folders made on the way), read one back.
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace veltro::test {

inline bool writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(content) == content.size();
}

// A byte vector as a QByteArray, to compare and to write.
template <class ByteVector> QByteArray qbytes(const ByteVector& b)
{
    return QByteArray(reinterpret_cast<const char*>(b.data()), qsizetype(b.size()));
}

inline QByteArray readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace veltro::test
