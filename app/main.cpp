#include "app/mainwindow.h"
#include "stream/linetype.h"
#include "resources/iconresources.h"
#include "views/glformat.h"

#include <QApplication>

int main(int argc, char* argv[])
{
    // The 3D view needs a 3.3 core profile and shared contexts; both must be
    // in place before the application object exists.
    vxlindral::GlFormat::installDefault();
    // The icons are compiled into a static library: register them explicitly.
    vxlindral::IconResources::init();

    QApplication* app = new QApplication(argc, argv);
    vxlindral::registerLineType();
    QCoreApplication::setOrganizationName("vx");
    QCoreApplication::setApplicationName("VxLindral");
    QCoreApplication::setOrganizationDomain("example.org");

    MainWindow* window = new MainWindow(nullptr);
    window->setWindowTitle("Vx Lindral");
    window->show();
    app->exec();

    // Whatever the loop returned, the program ends normally once the window
    // has been closed.
    delete window;
    delete app;
    return 0;
}
