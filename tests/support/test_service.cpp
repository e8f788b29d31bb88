// Stands in for the background service: notes each start, then waits to be killed.
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

int main()
{
    if (const char* log = std::getenv("ZQ_SERVICE_STARTS")) {
        if (FILE* file = std::fopen(log, "a")) {
            std::fprintf(file, "%ld %ld\n", static_cast<long>(getpid()), static_cast<long>(getsid(0)));
            std::fclose(file);
        }
    }
    for (;;)
        pause();
}
