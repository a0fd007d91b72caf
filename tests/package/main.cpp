// Uses each installed library through its installed headers.
#include <core/icore.h>
#include <database/batch.h>
#include <database/database.h>
#include <directories>

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    Database* db = ICore::instance()->database();
    db->loadSchemaJson(R"({"tables":[{"name":"buysells","key":["buysell"],"columns":[
        {"name":"buysell","type":6,"length":2,"nullable":false},{"name":"name","type":8}]}]})");
    db->apply(BatchDecoder(*db).decode(R"({"table":"buysells","ops":[{"insert":{"buysell":"B","name":"Buy"}}]})", "main"));
    QString name = BuySellDirectory::i()->nameById(QLatin1Char('B'));
    std::printf("%s %s\n", qPrintable(name), qPrintable(OptioTypeDirectory::i()->nameByKey(QChar('C'))));
    return name == QLatin1String("Buy") ? 0 : 1;
}
