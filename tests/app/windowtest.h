#pragma once
// Runs a QtTest object in a process set up the way the program sets itself
// up, with private settings under a temporary XDG_CONFIG_HOME (so a first
// start opens only the 3D view).
#include "app/applicationsetup.h"

#include <QApplication>
#include <QTemporaryDir>
#include <QtTest>

template <typename Test> int runWindowTest(int argc, char* argv[])
{
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", config.path().toLocal8Bit());
    vxlindral::ApplicationSetup::beforeApplication();
    QApplication app(argc, argv);
    vxlindral::ApplicationSetup::afterApplication();
    Test test;
    return QTest::qExec(&test, argc, argv);
}
