// main() of every test binary: refuses to run anywhere but inside tools/sandbox, since
// the code under test mounts, reboots, kills wget and writes under /mnt and /tmp.
#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <unistd.h>

int main(int argc, char** argv)
{
    const char* flag = std::getenv("SIGNAGE_SANDBOX");
    if (flag == nullptr || access("/run/sandbox/calls.log", W_OK) != 0) {
        std::fprintf(stderr,
                     "%s: tests run only inside the sandbox: tools/sandbox -- %s\n",
                     argv[0], argv[0]);
        return 2;
    }
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
