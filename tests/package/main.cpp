// Uses each installed library through its installed headers, and checks that
// the program and the library share one instance of each directory.
#include <core/icore.h>
#include <database/batch.h>
#include <database/database.h>
#include <directories>

#include <QCoreApplication>
#include <cstdio>
#include <cstring>

namespace {
// The instance the library itself creates for a class: through the registry
// line programs bind by, whose instance() runs inside the library.
QObject* libraryInstance(char const* className)
{
    for (DirectoryClass const& line : directoryRegistry())
        if (std::strcmp(line.name(), className) == 0) return line.instance();
    return nullptr;
}

// This program's X::i() and QSingleton<X>::get() against the library's.
template <class X>
bool sameInstance()
{
    X* mine = X::i();
    QObject* library = libraryInstance(X::staticMetaObject.className());
    bool const same = mine && mine == library && QSingleton<X>::get() == mine;
    std::printf("%s: program %p, library %p%s\n", X::staticMetaObject.className(), static_cast<void*>(mine),
                static_cast<void*>(library), same ? "" : "  <- two instances");
    return same;
}
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    Database* db = ICore::instance()->database();
    db->loadSchemaJson(R"({"tables":[
        {"name":"buysells","key":["buysell"],"columns":[
            {"name":"buysell","type":6,"length":2,"nullable":false},{"name":"name","type":8}]},
        {"name":"statuses","key":["status"],"columns":[
            {"name":"status","type":1,"nullable":false},{"name":"name","type":8},{"name":"descr","type":8}]},
        {"name":"sectypes","key":["sectype"],"columns":[
            {"name":"sectype","type":1,"nullable":false},{"name":"name","type":8},{"name":"descr","type":8}]}]})");
    db->apply(BatchDecoder(*db).decode(R"({"table":"buysells","ops":[{"insert":{"buysell":"B","name":"Buy"}}]})", "main"));
    QString name = BuySellDirectory::i()->nameById(QLatin1Char('B'));
    std::printf("%s %s\n", qPrintable(name), qPrintable(OptioTypeDirectory::i()->nameByKey(QChar('C'))));

    bool const shared = sameInstance<BuySellDirectory>() && sameInstance<StatusDirectory>()
                        && sameInstance<SecTypeDirectory>()
                        && QSingleton<OptioTypeDirectory>::get() == OptioTypeDirectory::i();
    std::printf("library version %s\n", qPrintable(directory::libraryVersion()));
    return name == QLatin1String("Buy") && shared ? 0 : 1;
}
