// A program that uses the virtual bus as a bad guest would. boardTest runs it; the argument says how.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

int bus = -1;

/// MFR_ID as a descriptor of the bus gives it; -1 if it gives none.
int readId(int fd)
{
    i2c_smbus_data data{};
    i2c_smbus_ioctl_data request{I2C_SMBUS_READ, 0x99, I2C_SMBUS_BYTE_DATA, &data};
    return ioctl(fd, I2C_SMBUS, &request) == 0 ? data.byte : -1;
}

void say(int fd)
{
    std::printf("%x ", static_cast<unsigned>(readId(fd)));
    std::fflush(stdout);
}

// A copy from before the binding, a child, and a program that is started share what the original is bound to.
void copies(char** program)
{
    const int copy = dup(bus);
    ioctl(bus, I2C_SLAVE, 0x74L);
    say(copy);
    if (fork() == 0) {
        say(bus);
        setenv("BUS", std::to_string(bus).c_str(), 1);
        execvp(program[0], program);
    }
    wait(nullptr);
    say(bus);
}

void spellings()
{
    const int folder = open("/dev", O_RDONLY | O_DIRECTORY);
    for (const char* path : {"//dev/i2c-0", "/dev/../dev//i2c-0", "/proc/../dev/./i2c-0", "/dev/i2c-1", "/i2c-0"}) {
        std::printf("%d ", open(path, O_RDWR) >= 0);
    }
    std::printf("%d ", openat(folder, "i2c-0", O_RDWR) >= 0);
    std::printf("%d ", openat(AT_FDCWD, "i2c-0", O_RDWR) >= 0);
    std::printf("%d ", chdir("/dev") == 0 && open("i2c-0", O_RDWR) >= 0);
}

// The first descriptor that is free becomes the bus: standard output, and what it holds is written at the end.
void printIntoTheBus()
{
    close(STDOUT_FILENO);
    const int fd = open("/dev/i2c-0", O_RDWR);
    ioctl(fd, I2C_SLAVE, 0x74L);
    std::printf("***");
    std::fflush(stdout);
    std::fprintf(stderr, "%x\n", static_cast<unsigned>(readId(fd)));
    std::printf(" File");
}

void transferInAHandler()
{
    std::signal(SIGALRM, [](int) { readId(bus); });
    const itimerval often{{0, 300}, {0, 300}};
    setitimer(ITIMER_REAL, &often, nullptr);
    int good = 0;
    for (int i = 0; i < 200; ++i) {
        good += readId(bus) == 0x4D;
    }
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    std::printf("%d ", good);
}

void cancelTransfers()
{
    for (int i = 0; i < 20; ++i) {
        pthread_t thread = {};
        pthread_create(
            &thread, nullptr,
            [](void*) -> void* {
                for (;;) {
                    readId(bus);
                    pthread_testcancel();
                }
            },
            nullptr);
        usleep(1000);
        pthread_cancel(thread);
        pthread_join(thread, nullptr);
    }
    say(bus);
}

} // namespace

int main(int argc, char** argv)
{
    const std::string story = argc > 1 ? argv[1] : "";
    if (story == "inherited") {
        bus = std::atoi(std::getenv("BUS"));
        say(bus);
        ioctl(bus, I2C_SLAVE, 0x10L);
        return 0;
    }
    if (story == "print") {
        printIntoTheBus();
        return 0;
    }
    bus = open("/dev/i2c-0", O_RDWR);
    if (story == "copies") {
        copies(argv + 2);
    }
    ioctl(bus, I2C_SLAVE, 0x74L);
    if (story == "page") { // selects one, with no regard to others
        i2c_smbus_data data{};
        data.byte = 5;
        i2c_smbus_ioctl_data request{I2C_SMBUS_WRITE, 0x00, I2C_SMBUS_BYTE_DATA, &data};
        return ioctl(bus, I2C_SMBUS, &request);
    }
    if (story == "spellings") {
        spellings();
    } else if (story == "requests") {
        std::printf("%d %d %d ", ioctl(bus, I2C_PEC, 1L), ioctl(bus, I2C_TENBIT, 1L), ioctl(bus, 0x5401, 0L));
    } else if (story == "handler") {
        transferInAHandler();
    } else if (story == "cancel") {
        cancelTransfers();
    }
    return 0;
}
