#include "lifecycle/RunModes.h"

int main(int argc, char** argv)
{
    return runmodes::run(argc, argv);
}
