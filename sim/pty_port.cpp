#include "sim/pty_port.h"

#include "sim/report.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>

// More than any modem has to say; a daemon that never reads must not fill the memory.
static constexpr size_t unsent_bytes_max = 4 << 20;

// Bytes take a moment from one side of a pseudo-terminal to the other, and the break would overtake
// them. A daemon that does not read at all is not waited for longer than this.
static constexpr int64_t passage_ms = 5;
static constexpr int64_t read_wait_ms = 500;

pty_port::pty_port(sim_loop &loop, journal &log, std::vector<std::string> links,
                   std::function<void(std::string_view)> received, std::function<void()> left)
    : loop_(loop), log_(log), links_(std::move(links)), received_(std::move(received)),
      left_(std::move(left))
{
}

static int refuse(std::string &reason, const std::string &what)
{
    reason = what + ": " + strerror(errno);
    return -1;
}

int pty_port::open_pair(std::string &reason)
{
    master_.reset(posix_openpt(O_RDWR | O_NOCTTY));
    if (!master_ || grantpt(master_.get()) != 0 || unlockpt(master_.get()) != 0)
        return refuse(reason, "Could not make a pseudo-terminal");
    if (fcntl(master_.get(), F_SETFD, FD_CLOEXEC) != 0 ||
        fcntl(master_.get(), F_SETFL, O_RDWR | O_NONBLOCK) != 0)
        return refuse(reason, "Could not set up a pseudo-terminal");
    const char *device = ptsname(master_.get());
    if (!device)
        return refuse(reason, "Could not name a pseudo-terminal");
    const std::string path = device;
    slave_.reset(::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    struct termios settings = {};
    if (!slave_ || tcgetattr(slave_.get(), &settings) != 0)
        return refuse(reason, "Could not open " + path);
    cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL;
    if (tcsetattr(slave_.get(), TCSANOW, &settings) != 0)
        return refuse(reason, "Could not set up " + path);
    watch_openings(path);
    return make_links(path, reason);
}

int pty_port::make_links(const std::string &device, std::string &reason)
{
    for (const std::string &link : links_) {
        struct stat found = {};
        if (lstat(link.c_str(), &found) == 0) {
            if (!S_ISLNK(found.st_mode)) {
                errno = EEXIST;
                return refuse(reason, "Could not link " + link);
            }
            unlink(link.c_str());
        }
        if (symlink(device.c_str(), link.c_str()) != 0)
            return refuse(reason, "Could not link " + link);
    }
    return 0;
}

int pty_port::open(std::string &reason)
{
    close();
    if (open_pair(reason) != 0) {
        close();
        return -1;
    }
    watch_master();
    return 0;
}

void pty_port::close()
{
    for (const sim_timer &timer : timers_)
        loop_.cancel(timer);
    timers_.clear();
    if (!master_)
        return;
    loop_.unwatch(master_.get());
    loop_.unwatch(openings_.get());
    for (const std::string &link : links_)
        unlink(link.c_str());
    unsent_.clear();
    openings_.reset();
    slave_.reset();
    master_.reset();
}

void pty_port::watch_master()
{
    const auto events = static_cast<short>(unsent_.empty() ? POLLIN : POLLIN | POLLOUT);
    loop_.watch(master_.get(), events, [this](short ready) { master_ready(ready); });
}

void pty_port::master_ready(short events)
{
    if (events & POLLOUT)
        flush();
    if (events & (POLLIN | POLLHUP | POLLERR))
        receive();
}

void pty_port::receive()
{
    std::array<char, 4096> buffer;
    while (master_) {
        const ssize_t got = read(master_.get(), buffer.data(), buffer.size());
        if (got <= 0)
            return;
        // A daemon that was killed leaves the line in exclusive mode, and only root may open such a
        // line again.
        ioctl(slave_.get(), TIOCNXCL);
        received_(std::string_view(buffer.data(), static_cast<size_t>(got)));
    }
}

void pty_port::write(std::string_view bytes)
{
    if (!master_ || bytes.empty())
        return;
    if (unsent_.size() + bytes.size() > unsent_bytes_max) {
        log_.note("nobody reads: bytes dropped");
        return;
    }
    unsent_ += bytes;
    flush();
}

void pty_port::flush()
{
    const bool waited = !unsent_.empty();
    while (!unsent_.empty()) {
        const ssize_t sent = ::write(master_.get(), unsent_.data(), unsent_.size());
        if (sent <= 0)
            break;
        unsent_.erase(0, static_cast<size_t>(sent));
    }
    if (waited)
        watch_master();
}

void pty_port::hang_up(const hangup &end, std::function<void()> back)
{
    if (!master_)
        return;
    flush();
    loop_.unwatch(master_.get());
    loop_.unwatch(openings_.get());
    const auto renew = [this, end, back = std::move(back)] {
        close();
        log_.note("port gone");
        if (!end.return_ms)
            return;
        timers_.push_back(loop_.after(*end.return_ms, [this, back] {
            std::string reason;
            if (open(reason) != 0) {
                sim_report("%s", reason.c_str());
                return;
            }
            log_.note("port back");
            back();
        }));
    };
    timers_.push_back(loop_.after(
        passage_ms, [this, renew] { break_when_read(sim_loop::now_ms() + read_wait_ms, renew); }));
}

void pty_port::break_when_read(int64_t give_up_ms, std::function<void()> then)
{
    int unread = 0;
    if (ioctl(slave_.get(), FIONREAD, &unread) != 0 || unread == 0 ||
        sim_loop::now_ms() >= give_up_ms) {
        then();
        return;
    }
    timers_.push_back(loop_.after(
        1, [this, give_up_ms, then = std::move(then)] { break_when_read(give_up_ms, then); }));
}

// Who opens and closes the device is seen from the outside; where that cannot be watched, the port
// works all the same and only forgets less.
void pty_port::watch_openings(const std::string &device)
{
    openings_.reset(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!openings_ || inotify_add_watch(openings_.get(), device.c_str(), IN_OPEN | IN_CLOSE) < 0) {
        openings_.reset();
        return;
    }
    loop_.watch(openings_.get(), POLLIN, [this](short) { openings_ready(); });
}

// The state after the last event: true in `opened` or in `closed`, in neither without an event.
bool pty_port::read_openings(bool &opened, bool &closed)
{
    alignas(struct inotify_event) std::array<char, 4096> buffer;
    opened = closed = false;
    ssize_t got = 0;
    while ((got = read(openings_.get(), buffer.data(), buffer.size())) > 0) {
        size_t at = 0;
        while (at + sizeof(struct inotify_event) <= static_cast<size_t>(got)) {
            struct inotify_event event = {};
            memcpy(&event, buffer.data() + at, sizeof event);
            at += sizeof event + event.len;
            if (!(event.mask & (IN_OPEN | IN_CLOSE)))
                continue;
            opened = (event.mask & IN_OPEN) != 0;
            closed = !opened;
            log_.note(opened ? "port opened" : "port closed");
        }
    }
    return opened || closed;
}

// The remainder of a request is forgotten only if it certainly came from the one who has left: what
// is there is received first, and if somebody has opened the port meanwhile it may be his.
void pty_port::openings_ready()
{
    bool opened = false;
    bool closed = false;
    read_openings(opened, closed);
    if (!closed)
        return;
    ioctl(slave_.get(), TIOCNXCL);
    receive();
    if (openings_ && !read_openings(opened, closed))
        left_();
}
