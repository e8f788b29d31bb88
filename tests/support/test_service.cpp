// Stands in for the background service: notes each start (pid and session), then waits to be killed.
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

int main()
{
    if (const char* log = std::getenv("ZQ_SERVICE_STARTS"))
        dprintf(open(log, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644), "%d %d\n", getpid(), getsid(0));
    for (;;)
        pause();
}
