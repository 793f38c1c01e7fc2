// A program that misuses the virtual bus. boardTest runs it; the argument tells how.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

int bus = -1;

/// Reads or writes a byte of a register. Returns it; -1 if that fails.
int transfer(int fd, std::uint8_t readWrite, std::uint8_t code, std::uint8_t byte = 0)
{
    i2c_smbus_data data{byte};
    i2c_smbus_ioctl_data request{readWrite, code, I2C_SMBUS_BYTE_DATA, &data};
    return ioctl(fd, I2C_SMBUS, &request) == 0 ? data.byte : -1;
}

int readId(int fd)
{
    return transfer(fd, I2C_SMBUS_READ, 0x99);
}

void say(int fd)
{
    std::printf("%x ", static_cast<unsigned int>(readId(fd)));
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

void requests()
{
    const auto descriptorFlags = [](int flags) { return fcntl(open("/dev/i2c-0", O_RDWR | flags), F_GETFD); };
    std::printf("%d %d %d ", ioctl(bus, I2C_PEC, 1L), ioctl(bus, I2C_TENBIT, 1L), ioctl(bus, 0x5401, 0L));
    std::printf("%d %d %d ", ioctl(bus, I2C_SLAVE_FORCE, 0x80L), descriptorFlags(0), descriptorFlags(O_CLOEXEC));
    i2c_smbus_data data{};
    i2c_smbus_ioctl_data older{I2C_SMBUS_READ, 0x9C, I2C_SMBUS_I2C_BLOCK_BROKEN, &data};
    ioctl(bus, I2C_SMBUS, &older);
    std::printf("%x %x %x ", data.block[0], data.block[1], data.block[32]);
}

// Sleeps until a time that is over and until one to come, which no signal interrupts for 10 s, and one that a signal
// interrupts: most of it is left.
void sleeps()
{
    std::signal(SIGALRM, [](int) {});
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    for (int i = 0; i < 2; ++i) {
        alarm(10);
        std::printf("%d ", clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &time, nullptr));
        time.tv_sec += 100;
    }
    ualarm(100000, 0);
    time = {2000, 0};
    std::printf("%d ", clock_nanosleep(CLOCK_MONOTONIC, 0, &time, &time));
    std::printf("%d ", time.tv_sec > 1000 && time.tv_sec < 2000);
}

// The first descriptor that is free becomes the bus: standard output, and what it holds is written at the end.
void printIntoTheBus()
{
    close(STDOUT_FILENO);
    const int fd = open("/dev/i2c-0", O_RDWR);
    ioctl(fd, I2C_SLAVE, 0x74L);
    std::printf("***");
    std::fflush(stdout);
    std::fprintf(stderr, "%x\n", static_cast<unsigned int>(readId(fd)));
    std::printf(" File");
}

void transferInAHandler()
{
    std::signal(SIGALRM, [](int) { readId(bus); });
    ualarm(300, 300);
    int good = 0;
    for (int i = 0; i < 200; ++i) {
        good += readId(bus) == 0x4D;
    }
    ualarm(0, 0);
    std::printf("%d ", good);
}

void* transferForEver(void* /*nothing*/)
{
    for (;;) {
        readId(bus);
        pthread_testcancel();
    }
}

void cancelTransfers()
{
    for (int i = 0; i < 20; ++i) {
        pthread_t thread = {};
        pthread_create(&thread, nullptr, transferForEver, nullptr);
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
    const char* const inherited = std::getenv("BUS");
    bus = inherited == nullptr ? open("/dev/i2c-0", O_RDWR) : std::atoi(inherited);
    if (inherited != nullptr) {
        say(bus);
    } else if (story == "copies") {
        copies(argv + 2);
    }
    ioctl(bus, I2C_SLAVE, inherited == nullptr ? 0x74L : 0x10L);
    if (story == "page") {
        transfer(bus, I2C_SMBUS_WRITE, 0x00, static_cast<std::uint8_t>(std::atoi(argv[2]))); // without the lock
    } else if (story == "print") {
        printIntoTheBus();
    } else if (story == "spellings") {
        spellings();
    } else if (story == "requests") {
        requests();
    } else if (story == "force") {
        return ioctl(bus, I2C_SLAVE, 0x74L) == -1 && ioctl(bus, I2C_SLAVE_FORCE, 0x74L) == 0 ? 0 : 1;
    } else if (story == "sleeps") {
        sleeps();
    } else if (story == "log") {
        setlogmask(LOG_UPTO(LOG_WARNING));
        syslog(LOG_INFO, "no");
        syslog(LOG_WARNING, "yes\t\x7f\n");
    } else if (story == "handler") {
        transferInAHandler();
    } else if (story == "cancel") {
        cancelTransfers();
    }
    return 0;
}
