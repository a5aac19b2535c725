#include <QCoreApplication>

#include <cstdio>

// The tray application is assembled once its platform bindings exist; until then the binary
// only confirms that the core builds and links.
int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    std::puts("Vantrel: the core library is built. The tray application and its windows are not "
              "assembled yet, so there is nothing to show.");
    return 0;
}
