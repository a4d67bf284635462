#include <QCoreApplication>
#include <gtest/gtest.h>

// Every test binary gets a QCoreApplication on its main thread, so that code which hands
// work to the main thread, timers and sockets behave as they do in the program.
int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
