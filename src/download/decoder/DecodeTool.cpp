// newsdredge-decode INPUT [OUTDIR]: decodes a file of saved parts (yEnc,
// uuencode or MIME base64) into OUTDIR (default: the current directory),
// naming the result after the name the data carries.

#include "download/decoder/Decoders.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream err(stderr), out(stdout);
    const QStringList args = app.arguments();
    if (args.size() < 2 || args.size() > 3 || args[1] == QLatin1String("-h") || args[1] == QLatin1String("--help")) {
        err << "usage: newsdredge-decode INPUT [OUTDIR]\n"
               "Decodes yEnc, uuencoded or MIME base64 text into a file in OUTDIR.\n";
        return 64;
    }
    const QString input = args[1];
    QString outDir = args.size() > 2 ? args[2] : QDir::currentPath();
    if (!outDir.endsWith(QLatin1Char('/')))
        outDir += QLatin1Char('/');
    if (!QFileInfo(outDir).isDir()) {
        err << "newsdredge-decode: " << outDir << " is not a directory\n";
        return 2;
    }

    QFile in(input);
    if (!in.open(QIODevice::ReadOnly)) {
        err << "newsdredge-decode: cannot read " << input << ": " << in.errorString() << "\n";
        return 2;
    }
    int format = decoder::FormatMime;
    QString name;
    {
        const qint64 size = in.size();
        const uchar *m = size > 0 ? in.map(0, size) : nullptr;
        QByteArray copy;
        const char *data = reinterpret_cast<const char *>(m);
        if (!m) {
            copy = in.readAll();
            data = copy.constData();
        }
        const qint64 len = m ? size : copy.size();
        format = decoder::detectFormat(data, len);
        name = decoder::safeFileName(decoder::announcedFileName(format, data, len));
    }
    in.close();
    if (name.isEmpty())
        name = QFileInfo(input).completeBaseName() + QStringLiteral(".decoded");

    const QString output = outDir + name;
    if (QFileInfo::exists(output)) {
        err << "newsdredge-decode: " << output << " already exists; not overwritten\n";
        return decoder::ErrorExists;
    }
    const char *formatName = format == decoder::FormatYenc ? "yEnc"
                             : format == decoder::FormatUuencode ? "uuencode" : "MIME";
    const decoder::FileDecodeResult r = decoder::decodeFile(input, output, format, false);
    if (r.error != decoder::NoError) {
        err << "newsdredge-decode: " << formatName << ": " << r.errorText << "\n";
        return r.error;
    }
    out << r.outputPath << " (" << formatName << ", " << QFileInfo(r.outputPath).size() << " bytes)\n";
    return 0;
}
