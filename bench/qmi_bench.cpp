// What the QMI link costs: one request beside a bare ping-pong of the same sizes over the same kind
// of socket, each against a thread of this program that answers at once. A request should take at
// most twice the ping-pong's time.

#include "platform/unique_fd.h"
#include "qmi/messages.h"
#include "qmi/qmux.h"
#include "qmi/tlv.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include <benchmark/benchmark.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/un.h>

constexpr std::string_view model = "MC7700";
constexpr size_t request_bytes = qmux_header_bytes + qmux_service_header_bytes;
constexpr size_t response_bytes =
    request_bytes + 2 * tlv_header_bytes + sizeof(tlv_result) + model.size();

[[noreturn]] static void give_up(const char *what)
{
    perror(what);
    exit(1);
}

// Reads until the other side closes, and answers each frame with a success, a client id or a model.
static void serve(const unique_fd &listener)
{
    const unique_fd fd(accept(listener.get(), nullptr, nullptr));
    std::array<uint8_t, 4096> buffer;
    ssize_t count;
    while ((count = recv(fd.get(), buffer.data(), buffer.size(), 0)) > 0) {
        qmux_message message;
        if (qmux_decode(std::span(buffer).first(static_cast<size_t>(count)), message) != 0)
            continue;
        tlv_writer row;
        row.begin(tlv_result_type);
        row.number(uint32_t{0});
        row.begin(0x01);
        if (message.service == qmi_ctl) {
            row.number(uint8_t{qmi_dms});
            row.number(uint8_t{1});
        } else {
            row.text(model);
        }
        (void)row.end();
        message.from_modem = true;
        message.kind = qmux_response;
        message.tlvs = row.bytes;
        std::vector<uint8_t> frame;
        if (qmux_encode(message, frame) == 0)
            (void)!send(fd.get(), frame.data(), frame.size(), MSG_NOSIGNAL);
    }
}

static void request(benchmark::State &state)
{
    char directory[] = "/tmp/qmi_bench.XXXXXX";
    if (!mkdtemp(directory))
        give_up(directory);
    setenv("TESSERA_ROOT", directory, 1);
    const std::string root = directory;
    std::filesystem::create_directories(root + "/var");
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "%s%s", directory, qmi_connect_path);
    const unique_fd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(listener.get(), 1) != 0)
        give_up(address.sun_path);
    std::thread server([&] { serve(listener); });
    uint32_t handle = 0;
    if (qmi_open("bench", handle) != qmi_ok)
        give_up("qmi_open");
    std::string text;
    for (auto _ : state) {
        if (qmi_dms_get_model(handle, text) != qmi_ok || text != model)
            state.SkipWithError("no answer");
    }
    (void)qmi_close(handle);
    server.join();
    std::filesystem::remove_all(root);
}

static bool exchange(int fd, size_t out_bytes, size_t in_bytes)
{
    std::array<uint8_t, 256> buffer = {};
    if (send(fd, buffer.data(), out_bytes, MSG_NOSIGNAL) != static_cast<ssize_t>(out_bytes))
        return false;
    pollfd waited = {fd, POLLIN, 0};
    return poll(&waited, 1, -1) == 1 &&
           recv(fd, buffer.data(), in_bytes, 0) == static_cast<ssize_t>(in_bytes);
}

static void ping_pong(benchmark::State &state)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        give_up("socketpair");
    unique_fd near(ends[0]);
    const unique_fd far(ends[1]);
    std::thread server([&] {
        std::array<uint8_t, 256> buffer = {};
        while (recv(far.get(), buffer.data(), buffer.size(), 0) > 0)
            (void)!send(far.get(), buffer.data(), response_bytes, MSG_NOSIGNAL);
    });
    for (auto _ : state)
        if (!exchange(near.get(), request_bytes, response_bytes))
            state.SkipWithError("no answer");
    near.reset();
    server.join();
}

BENCHMARK(ping_pong)->UseRealTime();
BENCHMARK(request)->UseRealTime();

int main(int argc, char **argv)
{
    // Both sides on one processor: whether the kernel wakes a partner on the same or on another one
    // decides more than what is measured here.
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
    sched_setaffinity(0, sizeof(one), &one);

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
