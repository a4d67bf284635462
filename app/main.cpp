#include <cstdio>

// Run-mode selection; filled in with the controller.
int main()
{
    std::fputs("SoftwareUpdate: not built yet\n", stderr);
    return 1;
}
