#include "lifecycle/RunModes.h"
#include "ui/widgets/WindowedApplication.h"

int main(int argc, char** argv)
{
    return runmodes::run(argc, argv, &widgets::runWindowedApplication);
}
