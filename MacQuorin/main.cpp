#include "ApplicationMain.h"
#include "Platform.h"

int main(int argc, char* argv[])
{
    Platform::prepareProcess();
    ApplicationMain(argc, argv);
    return 0;
}
