#include "app/applicationsetup.h"
#include "app/mainwindow.h"

#include <QApplication>

int main(int argc, char* argv[])
{
    vxlindral::ApplicationSetup::beforeApplication();
    QApplication* app = new QApplication(argc, argv);
    vxlindral::ApplicationSetup::afterApplication();

    MainWindow* window = new MainWindow(nullptr);
    window->setWindowTitle("Vx Lindral");
    window->show();
    // A capture file named on the command line is played at once.
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() > 1)
        window->openCapture(arguments.at(1));
    app->exec();

    // Whatever the loop returned, the program ends normally once the window
    // has been closed.
    delete window;
    delete app;
    return 0;
}
