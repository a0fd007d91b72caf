#include "startup.h"

#include <QCoreApplication>
#include <QDir>
#include <QLocale>
#include <QTranslator>

namespace apps {

QString dataRoot(char const* fromBinary)
{
    return QDir::cleanPath(QDir(QCoreApplication::applicationDirPath()).filePath(QString::fromUtf8(fromBinary)));
}

QString chosenLanguage(QString const& asked)
{
    if (!asked.isEmpty()) return asked;
    return QLocale::system().language() == QLocale::Russian ? QStringLiteral("ru") : QStringLiteral("en");
}

QString installTranslation(QTranslator& translator, QString const& lang, QString const& dataRoot)
{
    if (lang == QLatin1String("ru")) return QString();
    QString dir = dataRoot + QStringLiteral("/translations");
    if (!translator.load(QStringLiteral("libdirectory_") + lang, dir))
        return QStringLiteral("no '%1' translation in %2").arg(lang, dir);
    QCoreApplication::installTranslator(&translator);
    return QString();
}

} // namespace apps
