#include "ApplicationMain.h"

int main(int argc, char* argv[])
{
    ApplicationMain(argc, argv);
    return 0;
}
