#pragma once
// Runs a QtTest object in a process set up the way the program's main() sets
// itself up: private settings under a temporary XDG_CONFIG_HOME (so a first
// start opens only the 3D view), the OpenGL 3.3 core default format and shared
// contexts before the application exists, the icons, the line type and the
// organisation and application names that place the settings.
#include "resources/iconresources.h"
#include "stream/linetype.h"
#include "views/glformat.h"

#include <QApplication>
#include <QTemporaryDir>
#include <QtTest>

template <typename Test> int runWindowTest(int argc, char* argv[])
{
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", config.path().toLocal8Bit());
    vxlindral::GlFormat::installDefault();
    vxlindral::IconResources::init();
    QApplication app(argc, argv);
    vxlindral::registerLineType();
    QCoreApplication::setOrganizationName("vx");
    QCoreApplication::setApplicationName("VxLindral");
    Test test;
    return QTest::qExec(&test, argc, argv);
}
