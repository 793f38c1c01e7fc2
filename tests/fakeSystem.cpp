// The checked forms of some calls are defined here beside the plain ones.
#undef _FORTIFY_SOURCE

#include "fakeSystem.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <sys/sem.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "boardUtils.h"

FakeSystem fakeSystem;

namespace {

constexpr int BUS_FD = 1000;
int busFd = BUS_FD;

template <typename... Values> std::string format(const char* form, Values... values)
{
    char text[2048];
    std::snprintf(text, sizeof(text), form, values...);
    return text;
}

void note(const std::string& line)
{
    fakeSystem.transcript += line + "\n";
}

/// Records a request and returns its result, with errno set on failure.
int request(const std::string& line, int otherwise)
{
    note(line);
    const auto own = fakeSystem.resultsOf.find(line + "\n");
    std::deque<int>& results = own == fakeSystem.resultsOf.end() ? fakeSystem.results : own->second;
    if (results.empty()) {
        return otherwise;
    }
    const int result = results.front();
    results.pop_front();
    errno = result < 0 ? -result : errno;
    return std::max(result, -1);
}

std::uint8_t takeFromBus()
{
    fakeSystem.bus.resize(std::max<std::size_t>(fakeSystem.bus.size(), 1));
    const std::uint8_t byte = fakeSystem.bus.front();
    fakeSystem.bus.pop_front();
    return byte;
}

std::string hex(const std::uint8_t* bytes, std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += format(" %02x", bytes[i]);
    }
    return text;
}

int smbus(int fd, const i2c_smbus_ioctl_data& transfer)
{
    const bool isRead = transfer.read_write == I2C_SMBUS_READ;
    const bool isWord = transfer.size == I2C_SMBUS_WORD_DATA;
    std::string sent;
    if (!isRead && transfer.data != nullptr) {
        const i2c_smbus_data& data = *transfer.data;
        sent = isWord                                 ? format(" %04x", data.word) // the number that the kernel gets
               : transfer.size == I2C_SMBUS_BYTE_DATA ? hex(&data.byte, 1)
                                                      : hex(data.block + 1, data.block[0]);
    }
    const int result = request(
        format("smbus %d %s size %u: %02x", fd, isRead ? "read" : "write", transfer.size, transfer.command) + sent, 0);
    if (result == 0 && isRead) {
        const std::uint8_t low = takeFromBus();
        if (isWord) {
            transfer.data->word = static_cast<std::uint16_t>(low + 256 * takeFromBus());
        } else {
            transfer.data->byte = low;
        }
    }
    return result;
}

int rdwr(int fd, const i2c_rdwr_ioctl_data& transfer)
{
    std::string text = format("rdwr %d", fd);
    for (std::uint32_t i = 0; i < transfer.nmsgs; ++i) {
        const i2c_msg& message = transfer.msgs[i];
        text += format(" %02x flags %d len %d", message.addr, message.flags, message.len)
                + (message.flags == I2C_M_RD ? "" : ":" + hex(message.buf, message.len));
    }
    const int result = request(text, static_cast<int>(transfer.nmsgs));
    const i2c_msg& last = transfer.msgs[transfer.nmsgs - 1];
    for (std::uint32_t i = 0; result != -1 && i < last.len; ++i) {
        last.buf[i] = takeFromBus();
    }
    return result;
}

/// Records "[TAG] file.cpp:12 (function) - text" as "TAG function: text".
void noteSyslog(int priority, const char* form, va_list arguments)
{
    char buffer[2048];
    std::vsnprintf(buffer, sizeof(buffer), form, arguments);
    const std::string text = buffer;
    fakeSystem.lastLog = "<" + std::to_string(priority) + ">" + text;
    const std::size_t function = text.find('(');
    const std::size_t end = text.find(") - ");
    note(text.substr(1, text.find(']') - 1) + " " + text.substr(function + 1, end - function - 1) + ": "
         + text.substr(end + 4));
    errno = 0; // as any call may change it
}

ssize_t print(void* mark, const char* text, std::size_t size)
{
    std::string& transcript = fakeSystem.transcript;
    for (const char c : std::string(text, size)) {
        transcript += transcript.empty() || transcript.back() == '\n' ? static_cast<const char*>(mark) : "";
        transcript += c;
    }
    return static_cast<ssize_t>(size);
}

/// A stream whose lines go to the transcript after `mark`, each character at once.
FILE* console(const char* mark)
{
    FILE* stream = fopencookie(const_cast<char*>(mark), "w", {nullptr, print, nullptr, nullptr});
    std::setvbuf(stream, nullptr, _IONBF, 0);
    return stream;
}

} // namespace

std::string asRecord(std::string digits)
{
    std::erase(digits, ' ');
    return format(":%02zX000000%sFF\n", digits.size() / 2, digits.c_str());
}

SystemTest::SystemTest()
{
    g_traceObject = new TraceObject("test", 9);
    fakeSystem = FakeSystem();
}

SystemTest::~SystemTest()
{
    delete std::exchange(g_traceObject, nullptr);
    std::filesystem::remove_all(m_folder);
}

std::string SystemTest::record(const std::function<void()>& operation)
{
    FILE* const output = std::exchange(stdout, console("> "));
    FILE* const errors = std::exchange(stderr, console("! "));
    operation();
    std::fclose(std::exchange(stdout, output));
    std::fclose(std::exchange(stderr, errors));
    return transcript();
}

std::string SystemTest::recordResult(const std::function<bool()>& operation)
{
    return record([&] { note(operation() ? "true" : "false"); });
}

int SystemTest::callWith(std::vector<std::string> words, const std::function<int(int, char**)>& function)
{
    words.insert(words.begin(), "./pm");
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    optind = 0; // a new scan
    return function(static_cast<int>(words.size()), argv.data());
}

std::string SystemTest::write(const std::string& name, const std::string& content) const
{
    std::filesystem::create_directory(m_folder);
    std::ofstream(m_folder + "/" + name, std::ios::binary) << content;
    return m_folder + "/" + name;
}

int boardUtils::getVersion(int& version)
{
    version = fakeSystem.hwVersion.value_or(version);
    return fakeSystem.hwVersion.has_value() ? 2 : 0;
}

extern "C" {

int open(const char* path, int flags, ...)
{
    if (std::strncmp(path, "/dev/i2c", 8) != 0) {
        return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, 0600));
    }
    return busFd = request(format("open %s flags %d", path, flags), BUS_FD);
}

int close(int fd)
{
    if (fd != busFd) {
        return static_cast<int>(syscall(SYS_close, fd));
    }
    note(format("close %d", fd));
    return 0;
}

ssize_t read(int fd, void* buffer, std::size_t size)
{
    errno = fakeSystem.readError;
    return fakeSystem.goodReads-- == 0 ? -1 : syscall(SYS_read, fd, buffer, size);
}

int access(const char* path, int mode) noexcept
{
    note(format("access %d", mode));
    return static_cast<int>(syscall(SYS_faccessat, AT_FDCWD, path, mode));
}

int ioctl(int fd, unsigned long code, ...) noexcept
{
    va_list arguments;
    va_start(arguments, code);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (code == I2C_SMBUS) {
        return smbus(fd, *static_cast<i2c_smbus_ioctl_data*>(argument));
    }
    if (code == I2C_RDWR) {
        return rdwr(fd, *static_cast<i2c_rdwr_ioctl_data*>(argument));
    }
    return request(format("ioctl %d %lx %p", fd, code, argument), 0);
}

// What these become where files and times have 64 bits.
int open64(const char* path, int flags, ...) __attribute__((alias("open")));
int __ioctl_time64(int fd, unsigned long code, ...) noexcept __attribute__((alias("ioctl")));

int semget(key_t key, int count, int flags) noexcept
{
    return request(format("semget %x %d %x", key, count, flags), 42);
}

int semop(int id, sembuf* operation, std::size_t count) noexcept
{
    return request(
        format("semop %d: %d %+d flags %d, %zu", id, operation->sem_num, operation->sem_op, operation->sem_flg, count),
        0);
}

int semctl(int id, int number, int command, ...) noexcept
{
    union semun {
        int val;
        semid_ds* buf;
    };
    if (command == GETVAL || command == GETPID) {
        return request(format("semctl %d %d %s", id, number, command == GETVAL ? "GETVAL" : "GETPID"),
                       command == GETVAL ? 0 : getpid());
    }
    va_list arguments;
    va_start(arguments, command);
    const int value = va_arg(arguments, semun).val;
    va_end(arguments);
    return request(format("semctl %d %d %s %d", id, number, command == SETVAL ? "SETVAL" : "?", value), 0);
}

int kill(pid_t process, int signal) noexcept
{
    return request(format("kill %d %d", process, signal), 0);
}

unsigned int sleep(unsigned int seconds)
{
    note(format("sleep %u", seconds));
    return 0;
}

int usleep(useconds_t microseconds)
{
    note(format("usleep %u", microseconds));
    errno = 0; // as any call may change it
    return 0;
}

void openlog(const char* identity, int options, int facility)
{
    note(format("openlog %s %d %d", identity, options, facility));
}

void closelog()
{
    note("closelog");
}

void syslog(int priority, const char* form, ...)
{
    va_list arguments;
    va_start(arguments, form);
    noteSyslog(priority, form, arguments);
    va_end(arguments);
}

void __syslog_chk(int priority, int /*flag*/, const char* form, ...)
{
    va_list arguments;
    va_start(arguments, form);
    noteSyslog(priority, form, arguments);
    va_end(arguments);
}

} // extern "C"
