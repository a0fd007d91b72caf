#include <QCoreApplication>
#include <gtest/gtest.h>

// Directories are QObjects with signals: tests run inside an application.
int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
