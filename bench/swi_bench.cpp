// What the SDK's client costs: one request beside a bare ping-pong of the same sizes over the same
// kind of socket, and a full status record, each against a server in a thread of this program that
// answers at once. A request should take at most twice the ping-pong's time.

#include "backends/sierra/gsm.h"
#include "cellmodem/cellmodem.h"
#include "platform/unique_fd.h"
#include "swi/calls.h"
#include "swi/packet.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include <benchmark/benchmark.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

constexpr size_t request_bytes = swi_header_bytes + swi_object_header_bytes;
constexpr size_t response_bytes = request_bytes + swi_layout_of<swi_rssi_ber>.wire_bytes_max;

[[noreturn]] static void give_up(const char *what)
{
    perror(what);
    exit(1);
}

// ---- the server

static size_t response_length(const swi_header &header, const swi_object_header &object)
{
    for (const swi_operation &row : swi_operations)
        if (row.kind == header.kind && row.object == object.object &&
            (row.kind != swi_kind_object || row.operation == object.operation))
            return row.response->wire_bytes_min + (row.own_result ? sizeof(uint32_t) : 0);
    return 0;
}

// Success and zeros, whatever was asked.
static void answer(int fd, std::span<const uint8_t> bytes)
{
    static const std::array<uint8_t, swi_response_bytes_max> zeros = {};
    std::array<uint8_t, swi_response_bytes_max> buffer;
    swi_header header;
    swi_object_header object;
    std::span<const uint8_t> payload;
    std::span<const uint8_t> parameters;
    if (swi_packet_read(bytes, header, payload) != 0)
        return;
    const bool of_object =
        header.kind == swi_kind_object && swi_object_read(payload, object, parameters) == 0;
    const size_t length = response_length(header, object);
    header.message = swi_message_response;
    object.parameter_bytes = static_cast<uint16_t>(length);
    swi_packet_writer writer(buffer, header);
    if ((of_object && writer.add(object) != 0) ||
        (header.kind == swi_kind_device_info && writer.add(swi_plain_response()) != 0) ||
        writer.add_bytes(std::span(zeros).first(length)) != 0)
        return;
    const std::span<const uint8_t> packet = writer.finish();
    (void)send(fd, packet.data(), packet.size(), MSG_NOSIGNAL);
}

static unique_fd listen_at(const std::string &root, const char *channel)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    char path[64];
    snprintf(path, sizeof(path), SWI_SERVER_SOCKET_PATTERN, channel, swi_socket_number);
    snprintf(address.sun_path, sizeof(address.sun_path), "%s%s", root.c_str(), path);
    unique_fd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(fd.get(), 1) != 0)
        give_up(address.sun_path);
    return fd;
}

static unique_fd accept_and_greet(const unique_fd &listener)
{
    unique_fd fd(accept(listener.get(), nullptr, nullptr));
    std::array<uint8_t, 64> buffer;
    swi_header header;
    header.message = swi_message_greeting;
    swi_packet_writer writer(buffer, header);
    if (writer.add(swi_greeting()) != 0)
        give_up("greeting");
    const std::span<const uint8_t> packet = writer.finish();
    (void)send(fd.get(), packet.data(), packet.size(), MSG_NOSIGNAL);
    return fd;
}

static void serve(unique_fd requests, unique_fd notifications)
{
    const unique_fd client = accept_and_greet(requests);
    const unique_fd listener = accept_and_greet(notifications);
    std::array<uint8_t, swi_response_bytes_max> buffer;
    ssize_t length;
    while ((length = recv(client.get(), buffer.data(), buffer.size(), 0)) > 0)
        answer(client.get(), std::span(buffer).first(static_cast<size_t>(length)));
}

// A root with a served SDK, an attached modem and nothing else.
struct bench_root {
    std::string path = (std::filesystem::temp_directory_path() / "swi_bench.XXXXXX").string();
    std::thread server;
    cellmodem *modem = nullptr;

    bench_root()
    {
        if (!mkdtemp(path.data()))
            give_up(path.c_str());
        for (const char *directory : {"/tmp", "/bin", "/var/run"})
            std::filesystem::create_directories(path + directory);
        fclose(fopen((path + "/bin/swisdk").c_str(), "w"));
        chmod((path + "/bin/swisdk").c_str(), 0755);
        setenv("TESSERA_ROOT", path.c_str(), 1);
        server = std::thread(serve, listen_at(path, "CNRR1"), listen_at(path, "NOTIF1"));
        if (cellmodem_create(&modem) != 0 || sierra_gsm_init(*modem) != 0 ||
            modem->slots.attach(*modem) != 0)
            give_up("attach");
    }
    ~bench_root()
    {
        cellmodem_destroy(&modem);
        swi_api_close();
        server.join();
        std::filesystem::remove_all(path);
    }
};

// ---- what is measured

static void bare_ping_pong(benchmark::State &state)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0)
        give_up("socketpair");
    const unique_fd near(ends[0]);
    std::thread other([far = unique_fd(ends[1])] {
        std::array<uint8_t, swi_response_bytes_max> buffer;
        while (recv(far.get(), buffer.data(), buffer.size(), 0) > 0)
            (void)send(far.get(), buffer.data(), response_bytes, MSG_NOSIGNAL);
    });
    std::array<uint8_t, swi_response_bytes_max> buffer = {};
    for ([[maybe_unused]] auto turn : state)
        if (send(near.get(), buffer.data(), request_bytes, MSG_NOSIGNAL) < 0 ||
            recv(near.get(), buffer.data(), buffer.size(), 0) < 0)
            state.SkipWithError("ping-pong failed");
    shutdown(near.get(), SHUT_RDWR);
    other.join();
}
BENCHMARK(bare_ping_pong)->UseRealTime();

static void sdk_request(benchmark::State &state)
{
    swi_rssi_ber signal;
    for ([[maybe_unused]] auto turn : state)
        if (swi_get_rssi_ber(signal, 60000) != swi_ok)
            state.SkipWithError("request failed");
}
BENCHMARK(sdk_request)->UseRealTime();

static bench_root *served;

static void status_record(benchmark::State &state)
{
    FILE *null = fopen("/dev/null", "w");
    for ([[maybe_unused]] auto turn : state)
        benchmark::DoNotOptimize(served->modem->slots.status(*served->modem, null, output_lines));
    fclose(null);
}
BENCHMARK(status_record)->UseRealTime();

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    bench_root root;
    served = &root;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
