#include "fakeSystem.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <sys/sem.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "boardUtils.h"
#include "lineNumbers.h"

FakeSystem fakeSystem;

namespace {

constexpr int BUS_FD = 1000;

void note(const char* format, ...)
{
    char line[2048];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    fakeSystem.transcript += line;
    fakeSystem.transcript += '\n';
}

std::uint8_t takeFromBus()
{
    if (fakeSystem.bus.empty()) {
        return 0;
    }
    const std::uint8_t byte = fakeSystem.bus.front();
    fakeSystem.bus.pop_front();
    return byte;
}

std::string hex(const std::uint8_t* bytes, std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        char digits[4];
        std::snprintf(digits, sizeof(digits), " %02x", bytes[i]);
        text += digits;
    }
    return text;
}

int smbus(int fd, i2c_smbus_ioctl_data& request)
{
    std::string sent;
    if (request.read_write == I2C_SMBUS_WRITE && request.data != nullptr) {
        switch (request.size) {
        case I2C_SMBUS_BYTE_DATA:
            sent = hex(&request.data->byte, 1);
            break;
        case I2C_SMBUS_WORD_DATA: {
            const std::uint8_t bytes[] = {static_cast<std::uint8_t>(request.data->word & 0xFF),
                                          static_cast<std::uint8_t>(request.data->word >> 8)};
            sent = hex(bytes, 2);
            break;
        }
        default:
            sent = hex(request.data->block + 1, request.data->block[0]);
        }
    }
    note("smbus %d %s size %u: %02x%s", fd, request.read_write == I2C_SMBUS_READ ? "read" : "write",
         request.size, request.command, sent.c_str());
    const int result = fakeSystem.next(0);
    if (result == 0 && request.read_write == I2C_SMBUS_READ) {
        if (request.size == I2C_SMBUS_WORD_DATA) {
            const int low = takeFromBus();
            request.data->word = static_cast<std::uint16_t>(low + 256 * takeFromBus());
        } else {
            request.data->byte = takeFromBus();
        }
    }
    return result;
}

int rdwr(int fd, const i2c_rdwr_ioctl_data& request)
{
    std::string text;
    for (std::uint32_t i = 0; i < request.nmsgs; ++i) {
        const i2c_msg& message = request.msgs[i];
        char head[32];
        std::snprintf(head, sizeof(head), " %02x flags %d len %d", message.addr, message.flags,
                      message.len);
        text += head;
        if ((message.flags & I2C_M_RD) == 0) {
            text += ":" + hex(message.buf, message.len);
        }
    }
    note("rdwr %d%s", fd, text.c_str());
    const int result = fakeSystem.next(static_cast<int>(request.nmsgs));
    const i2c_msg& last = request.msgs[request.nmsgs - 1];
    for (std::uint32_t i = 0; result != -1 && i < last.len; ++i) {
        last.buf[i] = takeFromBus();
    }
    return result;
}

void noteSyslog(int priority, const char* format, va_list arguments)
{
    char text[2048];
    std::vsnprintf(text, sizeof(text), format, arguments);
    note("<%d>%s", priority, withoutLineNumbers(text).c_str());
    errno = 0; // as any call may change it
}

} // namespace

int FakeSystem::next(int otherwise)
{
    if (results.empty()) {
        return otherwise;
    }
    const int result = results.front();
    results.pop_front();
    if (result < 0) {
        errno = -result;
        return -1;
    }
    return result;
}

SystemTest::SystemTest()
{
    g_traceObject = new TraceObject("test", 9);
    fakeSystem = FakeSystem();
}

SystemTest::~SystemTest()
{
    delete g_traceObject;
    g_traceObject = nullptr;
}

std::string SystemTest::transcript()
{
    std::string text;
    text.swap(fakeSystem.transcript);
    return text;
}

int boardUtils::getVersion(int& version)
{
    if (fakeSystem.hwVersion < 0) {
        return 0;
    }
    version = fakeSystem.hwVersion;
    return 2;
}

extern "C" {

int open(const char* path, int flags, ...)
{
    if (std::strncmp(path, "/dev/i2c", 8) != 0) {
        return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, 0600));
    }
    note("open %s flags %d", path, flags);
    return fakeSystem.next(BUS_FD);
}

int close(int fd)
{
    if (fd != BUS_FD) {
        return static_cast<int>(syscall(SYS_close, fd));
    }
    note("close");
    return 0;
}

int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    switch (request) {
    case I2C_SMBUS:
        return smbus(fd, *static_cast<i2c_smbus_ioctl_data*>(argument));
    case I2C_RDWR:
        return rdwr(fd, *static_cast<i2c_rdwr_ioctl_data*>(argument));
    default:
        note("ioctl %d %lx %p", fd, request, argument);
        return fakeSystem.next(0);
    }
}

int semget(key_t key, int count, int flags) noexcept
{
    note("semget %x %d %x", static_cast<unsigned int>(key), count,
         static_cast<unsigned int>(flags));
    return fakeSystem.next(42);
}

int semop(int id, sembuf* operation, std::size_t count) noexcept
{
    note("semop %d: %d %+d flags %d, %zu", id, operation->sem_num, operation->sem_op,
         operation->sem_flg, count);
    return fakeSystem.next(0);
}

int semctl(int id, int number, int command, ...) noexcept
{
    union semun {
        int val;
        semid_ds* buf;
    };
    if (command == SETVAL) {
        va_list arguments;
        va_start(arguments, command);
        note("semctl %d %d SETVAL %d", id, number, va_arg(arguments, semun).val);
        va_end(arguments);
    } else {
        note("semctl %d %d %s", id, number, command == GETVAL ? "GETVAL" : "?");
    }
    return fakeSystem.next(0);
}

unsigned int sleep(unsigned int seconds)
{
    note("sleep %u", seconds);
    return 0;
}

int usleep(useconds_t microseconds)
{
    note("usleep %u", microseconds);
    errno = 0; // as any call may change it
    return 0;
}

void syslog(int priority, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    noteSyslog(priority, format, arguments);
    va_end(arguments);
}

void __syslog_chk(int priority, int /*flag*/, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    noteSyslog(priority, format, arguments);
    va_end(arguments);
}

} // extern "C"
