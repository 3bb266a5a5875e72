// The process entry hands everything to the application shell.

#include "shell/App.h"

int main(int argc, char** argv) {
    return lumenvale::App::run(argc, argv);
}
