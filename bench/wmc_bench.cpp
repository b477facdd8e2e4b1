// One WMC exchange with a modem that answers at once: the lock file, the port opened and set up, the
// frame byte by byte, the reply, and all given back. Beside it the same bytes through a port that is
// only opened and closed.

#include "backends/serial/wmc.h"
#include "cellmodem/cellmodem.h"
#include "platform/unique_fd.h"

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>

// A private root with a modem behind its command port. The modem's thread ends with the process:
// nothing wakes a read of a pseudo-terminal's master.
static const std::string &command_port()
{
    static const std::string port = [] {
        char name[] = "/tmp/tessera-bench.XXXXXX";
        const std::string root = mkdtemp(name);
        for (const char *directory : {"/dev", "/var/lock", "/var/run"})
            std::filesystem::create_directories(root + directory);
        setenv("TESSERA_ROOT", root.c_str(), 1);
        std::atexit([] { std::filesystem::remove_all(std::getenv("TESSERA_ROOT")); });

        const int master = posix_openpt(O_RDWR | O_NOCTTY);
        grantpt(master);
        unlockpt(master);
        const std::string device = ptsname(master);
        const int kept_open = open(device.c_str(), O_RDWR | O_NOCTTY); // closing it is no hang-up
        termios raw = {};
        raw.c_cflag = CS8 | CREAD | CLOCAL;
        tcsetattr(kept_open, TCSANOW, &raw);
        std::filesystem::create_symlink(device, root + "/dev/cellcommand01");
        std::thread([master] {
            std::string reply = std::string(154, '\0').replace(151, 3, "00~");
            reply.replace(0, 2, "\xC8\x0B");
            char byte;
            while (read(master, &byte, 1) == 1)
                if (byte == '\r' && write(master, reply.data(), reply.size()) < 0)
                    return;
        }).detach();
        return root + "/dev/cellcommand01";
    }();
    return port;
}

static void wmc_exchange(benchmark::State &state)
{
    command_port();
    cellmodem modem;
    std::vector<uint8_t> reply;
    for (auto _ : state)
        if (pantech_wmc_sendcommand(modem, wmc_get_status, reply) != 0 || reply.size() != 154)
            state.SkipWithError("no reply");
}
BENCHMARK(wmc_exchange);

static void bare_exchange(benchmark::State &state)
{
    const std::string frame(wmc_find_frame(wmc_get_status)->bytes);
    char reply[154];
    for (auto _ : state) {
        const unique_fd fd(open(command_port().c_str(), O_RDWR | O_NOCTTY));
        for (const char byte : frame)
            if (write(fd.get(), &byte, 1) != 1)
                state.SkipWithError("not written");
        for (ssize_t got = 0; got < static_cast<ssize_t>(sizeof(reply));) {
            pollfd waited = {fd.get(), POLLIN, 0};
            poll(&waited, 1, -1);
            got += read(fd.get(), reply, sizeof(reply));
        }
    }
}
BENCHMARK(bare_exchange);
