#include "backends/serial/wmc.h"

#include "backends/serial/port.h"
#include "cellmodem/cellmodem.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "publish/state.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

constexpr const char *lock_directory = "/var/lock";
constexpr mode_t lock_directory_mode = 0644;
constexpr mode_t lock_file_mode = 0644;
constexpr int lock_attempts_max = 3;
constexpr int lock_pause_ms = 3000;
constexpr int reply_timeout_ms = 1000;
constexpr int empty_reads_max = 20;

#define WMC_START "AT*WMC=\xC8"

// clang-format off
constexpr wmc_frame frames[] = {
    {wmc_get_info,      WMC_START "\x7D\x26\xEB\x72\r",                                 644},
    {wmc_get_ip_config, WMC_START "\x7D\x2A\x87\xB8\r",                                 93},
    {wmc_get_status,    WMC_START "\x7D\x2B\x7D\x2E\xA9\r",                             154},
    {wmc_command_11,    WMC_START "\x7D\x31\x7D\x21\x7D\x20\x7D\x20\x7D\x26\x25\r",     9},
    {wmc_get_sms,       WMC_START "\x7D\x33\x7D\x21\x7D\x20\x7D\x20\x7D\x20\x8E\x33\r", 1536},
    {wmc_get_eps,       WMC_START "\x4D\x7D\x22\x7D\x20\x7D\x20\x7D\x20\x99\x7D\x22\r", 277},
    {wmc_command_54,    WMC_START "\x54\x7C\x7D\x23\r",                                 11},
};
// clang-format on

// A control character would end the command line or get lost on it.
constexpr bool is_escaped(std::string_view frame)
{
    for (const char c : frame.substr(0, frame.size() - 1))
        if (static_cast<unsigned char>(c) < 0x20)
            return false;
    return frame.back() == '\r';
}
static_assert(std::all_of(std::begin(frames), std::end(frames),
                          [](const wmc_frame &frame) { return is_escaped(frame.bytes); }));

const wmc_frame *wmc_find_frame(uint8_t code)
{
    const auto *found = std::find_if(std::begin(frames), std::end(frames),
                                     [=](const wmc_frame &frame) { return frame.code == code; });
    return found == std::end(frames) ? nullptr : found;
}

// ---- the lock file

static unique_fd lock_fd; // held from lock to unlock

static unsigned own_pid()
{
    return static_cast<unsigned>(getpid());
}

// The file's existence is the lock, for other programs too. Its owner's flock and process id only
// tell the living from the dead: an id alone may mean somebody else, in another container.
//
// Writes the own id over what is there: at no time is the file without a readable one. 0, or -1 with
// errno.
static int sign(const unique_fd &fd)
{
    char text[32];
    const int length = snprintf(text, sizeof(text), "%u\n", own_pid());
    const ssize_t written = pwrite(fd.get(), text, static_cast<size_t>(length), 0);
    if (written >= 0 && written != length)
        errno = ENOSPC;
    return written == length ? ftruncate(fd.get(), length) : -1;
}

// The lock appears under its name signed, by a link from a private name: a process that dies before
// leaves nothing behind that would block. -1 with errno, EEXIST when there is a lock.
static int link_signed(const unique_fd &fd, const std::string &private_place)
{
    if (fchmod(fd.get(), lock_file_mode) != 0)
        return -1;
    // Nobody else knows the file yet. Where there is no flock, the id has to do.
    (void)flock(fd.get(), LOCK_EX | LOCK_NB);
    return sign(fd) == 0 ? link(private_place.c_str(), rooted(wmc_lock_path).c_str()) : -1;
}

static unique_fd create_lock()
{
    std::string private_place = rooted(std::string(wmc_lock_path) + ".XXXXXX");
    unique_fd fd(mkostemp(private_place.data(), O_CLOEXEC));
    if (!fd)
        return fd;
    const int error = link_signed(fd, private_place) == 0 ? 0 : errno;
    unlink(private_place.c_str());
    if (error != 0)
        fd.reset();
    errno = error;
    return fd;
}

static bool has_name(const unique_fd &fd, const std::string &place)
{
    struct stat held, named;
    return fstat(fd.get(), &held) == 0 && stat(place.c_str(), &named) == 0 &&
           held.st_ino == named.st_ino && held.st_dev == named.st_dev;
}

static long read_owner(const unique_fd &fd)
{
    char line[32] = "";
    return pread(fd.get(), line, sizeof(line) - 1, 0) > 0 ? process_parse_pid(line) : -1;
}

// True when the file is this process' to take: a dead owner's, and still the lock.
static bool is_stale(const unique_fd &fd, const std::string &place, long &owner)
{
    struct stat status;
    if (fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        flock(fd.get(), LOCK_EX | LOCK_NB) != 0 || !has_name(fd, place))
        return false;
    owner = read_owner(fd);
    // In a container a restarted daemon often gets the very process id of its predecessor.
    return owner > 0 && (owner == getpid() || !process_alive(owner));
}

// Takes over the lock file of a dead process. It is written anew and never removed meanwhile, so
// that no other program comes between; it may still have been removed by somebody who saw the old
// owner. Empty with errno otherwise, EEXIST when the lock is respected.
static unique_fd take_over_lock()
{
    const std::string place = rooted(wmc_lock_path);
    unique_fd fd(open(place.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    long owner = -1;
    int error = 0;
    if (!fd || !is_stale(fd, place, owner))
        error = EEXIST;
    else if (sign(fd) != 0)
        error = errno;
    else if (!has_name(fd, place))
        error = EEXIST;
    if (error != 0) {
        fd.reset();
        errno = error;
        return fd;
    }
    log_message(log_warning, "Taking over %s, its owner %ld is dead", wmc_lock_path, owner);
    return fd;
}

static unique_fd try_lock()
{
    unique_fd fd = create_lock();
    return fd || errno != EEXIST ? std::move(fd) : take_over_lock();
}

int pantech_wmc_lock()
{
    log_message(log_debug, "Process %u is locking the Pantech Modem", own_pid());
    if (!file_exists(lock_directory) &&
        mkdir(rooted(lock_directory).c_str(), lock_directory_mode) != 0) {
        log_message(log_error, "Failed to create %s: %d: %s", lock_directory, errno,
                    strerror(errno));
        return -1;
    }
    for (int attempt = 1; attempt <= lock_attempts_max; attempt++) {
        lock_fd = try_lock();
        if (lock_fd)
            return 0;
        log_message(log_error, "Failed opening lockfile, attempt: %d, %d: %s", attempt, errno,
                    strerror(errno));
        clock_sleep_ms(lock_pause_ms);
    }
    log_message(log_error, "Another process is using the Pantech Modem");
    return -1;
}

void pantech_wmc_unlock()
{
    log_message(log_debug, "Process %u is unlocking the Pantech Modem", own_pid());
    if (lock_fd.reset() != 0)
        log_message(log_error, "Failed to close: %s: %s", wmc_lock_path, strerror(errno));
    if (unlink(rooted(wmc_lock_path).c_str()) != 0)
        log_message(log_error, "Pid: %d failed to unlock: %s", static_cast<int>(getpid()),
                    wmc_lock_path);
}

// ---- the port

int pantech_wmc_openwmcdevice(serial_port &port)
{
    log_message(log_debug, "pantech_wmc_openwmcdevice()");
    return port_open(port);
}

void pantech_wmc_closewmcdevice(serial_port &port)
{
    log_message(log_debug, "pantech_wmc_closewmcdevice()");
    port_close(port);
}

int pantech_wmc_sendwmccommand(serial_port &port, std::span<const char> bytes)
{
    log_message(log_debug, "pantech_wmc_sendwmccommand(buf: %p len: %d)",
                static_cast<const void *>(bytes.data()), static_cast<int>(bytes.size()));
    if (port_write(port, bytes) != 0) {
        if (errno != EAGAIN)
            log_message(log_fatal, "Failed writing WMC command");
        return -1;
    }
    log_message(log_debug, "Send %lu bytes to %s", static_cast<unsigned long>(bytes.size()),
                port_path);
    return 0;
}

// Reads until there are `wanted` bytes or nothing came for long enough.
static int read_reply(const serial_port &port, std::vector<uint8_t> &reply, size_t wanted)
{
    reply.resize(2 * wanted);
    size_t length = 0;
    int retries = 0;
    while (length < wanted && retries < empty_reads_max) {
        const ssize_t got = read(port.fd.get(), &reply[length], wanted);
        if (got > 0) {
            length += static_cast<size_t>(got);
        } else if (got == 0 || errno == EAGAIN) {
            if (retries > empty_reads_max)
                log_message(log_error, "Exceeded read reties: %s", port_path);
            retries++;
        } else {
            log_message(log_error, "Received %d unexpected chars: %s: %s", static_cast<int>(got),
                        strerror(errno), port_path);
            reply.clear();
            return -1;
        }
    }
    log_message(log_debug, "Got %d bytes from %s retries: %d", static_cast<int>(length), port_path,
                retries);
    reply.resize(length);
    return 0;
}

int pantech_wmc_read(serial_port &port, std::vector<uint8_t> &reply, size_t wanted)
{
    reply.clear();
    const int ready = clock_wait_readable(port.fd.get(), clock_answer_timeout_ms(reply_timeout_ms));
    if (ready < 0) {
        log_message(log_fatal, "Failed to select on: %s: %s", port_path, strerror(errno));
        return -1;
    }
    if (ready != 1) {
        log_message(log_debug, "select() failed: %s result: %d", port_path, ready);
        return -1;
    }
    return read_reply(port, reply, wanted);
}

// ---- one exchange

// These give back what was taken, also when an exception passes.
struct held_lock {
    ~held_lock() { pantech_wmc_unlock(); }
};

struct held_device {
    serial_port port;
    const char *closing;
    ~held_device()
    {
        if (!port.fd)
            return;
        log_message(log_debug, "%s", closing);
        pantech_wmc_closewmcdevice(port);
    }
};

int pantech_wmc_with_device(const char *opening, const char *closing,
                            const std::function<int(serial_port &)> &work)
{
    if (pantech_wmc_lock() != 0)
        return -1;
    const held_lock lock;
    log_message(log_debug, "%s", opening);
    held_device device = {{}, closing};
    if (pantech_wmc_openwmcdevice(device.port) != 0) {
        log_message(log_error, "Failed to open the WMC device");
        return -1;
    }
    return work(device.port);
}

// A reply with a wrong beginning or end is logged and used all the same.
static int check_reply(uint8_t code, std::span<const uint8_t> reply)
{
    if (reply.size() < wmc_reply_bytes_min) {
        log_message(log_error, "Receieved a short response: %d", static_cast<int>(reply.size()));
        return -1;
    }
    if (reply[0] != wmc_start || reply[1] != code)
        log_message(log_debug, "Receieved an unexpected response prefix: 0x%x 0x%x", reply[0],
                    reply[1]);
    const auto end = reply.last(wmc_reply_end.size());
    if (code != wmc_get_sms && !std::equal(end.begin(), end.end(), wmc_reply_end.begin()))
        log_message(log_error, "Received unexpected response term: 0x%x 0x%x 0x%x", end[2], end[1],
                    end[0]);
    return 0;
}

static int exchange(cellmodem &modem, serial_port &port, const wmc_frame &frame,
                    std::vector<uint8_t> &reply)
{
    log_message(log_debug, "cmd: 0x%x cmdlen: %d", frame.code,
                static_cast<int>(frame.bytes.size()));
    if (pantech_wmc_sendwmccommand(port, frame.bytes) != 0) {
        log_message(log_error, "Failed to send WMC command");
        (void)publish_device_state(modem, device_unresponsive);
        return -1;
    }
    (void)publish_device_state(modem, device_responding);
    if (pantech_wmc_read(port, reply, frame.reply_bytes) != 0) {
        log_message(log_error, "Failed to receive WMC reply");
        if (!clock_stopped()) // the wait was ended, the modem may well have been about to answer
            (void)publish_device_state(modem, device_unresponsive);
        return -1;
    }
    return check_reply(frame.code, reply);
}

int pantech_wmc_sendcommand(cellmodem &modem, uint8_t code, std::vector<uint8_t> &reply)
{
    log_message(log_debug, "pantech_wmc_sendcommand(0x%x)", code);
    reply.clear();
    const wmc_frame *frame = wmc_find_frame(code);
    if (!frame) {
        log_message(log_fatal, "No such command: 0x%x", code);
        pantech_wmc_unlock();
        return -1;
    }
    return pantech_wmc_with_device(
        "Opening WMC Device", "Closing WMC Device",
        [&](serial_port &port) { return exchange(modem, port, *frame, reply); });
}
