// Test main: a QCoreApplication exists for the whole run, as it does in the
// programs, so Qt services (event loop, standard paths) behave as they do there.
#include <QCoreApplication>

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    QCoreApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
