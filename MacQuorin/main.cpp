#include "ApplicationMain.h"
#include "Platform.h"

int main(int argc, char* argv[])
{
    Platform::prepareProcess();
    return ApplicationMain(argc, argv);
}
