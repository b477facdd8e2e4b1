// The client and the command channel, with everything that clients may do to the daemon.

#include "command/cmdsock.h"
#include "support/appliance.h"

#include <csignal>
#include <filesystem>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

class client_program : public appliance
{
protected:
    // What clients left in the root's /tmp.
    [[nodiscard]] std::ptrdiff_t leftovers() const
    {
        const std::filesystem::directory_iterator entries(root.place("/tmp"));
        return std::distance(begin(entries), end(entries));
    }

    // A server in this process instead of the daemon; `serve` gets the client's request.
    client_result
    with_server(const std::function<void(int fd, const cmdsock_sender &, pid_t client)> &serve)
    {
        const unique_fd server = cmdsock_server_open(cmdsock_path);
        const running_client client = spawn_tessera({"-i"});
        cmdsock_sender sender;
        argument_vector received;
        wait_for("the request",
                 [&] { return cmdsock_recv_request(server.get(), sender, received) == 0; });
        serve(server.get(), sender, client.pid);
        return finish(client);
    }

    // With a server that answers with these bytes.
    client_result answered(const std::string &bytes)
    {
        return with_server([&](int fd, const cmdsock_sender &sender, pid_t) {
            sendto(fd, bytes.data(), bytes.size(), 0,
                   reinterpret_cast<const sockaddr *>(&sender.address), sizeof(sender.address));
        });
    }
};

TEST_F(client_program, says_why_there_is_no_answer)
{
    const auto expect_error = [](const client_result &result, const std::string &error) {
        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "tessera: " + error + "\n");
    };
    expect_error(tessera({"-i"}), "socket /var/run/tessera.cmd: No such file or directory");
    expect_error(answered(""), "empty message");
    expect_error(answered(R"({"results":")" + std::string(70000, 'x') + R"(","ret_code":0})"),
                 "incomplete reply");
    // The server is gone, its socket file is not.
    expect_error(tessera({"-i"}), "socket /var/run/tessera.cmd: Connection refused");
    EXPECT_EQ(tessera({std::string(66000, 'x')}).code, 1);
    expect_error(with_server([](int, const cmdsock_sender &, pid_t) { sleep(16); }), "timeout");
    EXPECT_EQ(leftovers(), 0);

    const std::string deep = root.path() + "/" + std::string(90, 'd');
    std::filesystem::create_directories(deep + "/tmp");
    expect_error(run_program("tessera", {"-i"}, {"TESSERA_ROOT=" + deep}),
                 "socket /tmp: File name too long");
}

TEST_F(client_program, carries_results_and_code)
{
    const client_result result = answered("{\"results\":\"caf\xC3\xA9\\n<x>\",\"ret_code\":3}");
    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(result.out, "caf\xC3\xA9\n<x>");
    EXPECT_EQ(result.err, "");
}

TEST_F(client_program, prints_the_usage_without_a_daemon)
{
    const std::string usage = golden("usage.txt");
    for (const char *option : {"-h", "--help", "--hel"}) {
        const client_result result = tessera({option});
        EXPECT_EQ(result.code, 1) << "as with a daemon";
        EXPECT_TRUE(result.out.ends_with(usage.substr(usage.find('\n')))) << result.out;
        EXPECT_EQ(result.err, "");
    }
    EXPECT_NE(tessera({"-h", "-s"}).err, "") << "the status is missing, and that is said";
}

TEST_F(client_program, removes_its_socket_when_killed)
{
    for (const int signo : {SIGINT, SIGTERM, SIGHUP}) {
        const auto end_it = [&](int, const cmdsock_sender &, pid_t client) {
            EXPECT_EQ(leftovers(), 1);
            const std::filesystem::directory_iterator directory(root.place("/tmp"));
            EXPECT_EQ(directory->status().permissions(), std::filesystem::perms::owner_all);
            kill(client, signo);
        };
        EXPECT_EQ(with_server(end_it).code, 128 + signo);
        EXPECT_EQ(leftovers(), 0);
    }
}

// ---- what clients do to the daemon

class daemon_clients : public client_program
{
protected:
    void SetUp() override
    {
        client_program::SetUp();
        start_sim("directip");
        start_daemon();
        char error[256] = "";
        socket = cmdsock_client_open("/tmp/raw", cmdsock_path, error, sizeof(error));
        ASSERT_TRUE(socket) << error;
    }

    void send_raw(const std::string &bytes)
    {
        ASSERT_EQ(send(socket.get(), bytes.data(), bytes.size(), 0),
                  static_cast<ssize_t>(bytes.size()));
    }

    // The reply to the request, as "code results".
    std::string reply()
    {
        char error[256] = "";
        int code = -1;
        std::string results;
        if (cmdsock_recv_reply(socket.get(), code, results, error, sizeof(error)) != 0)
            return error;
        return std::to_string(code) + " " + results;
    }

    // A request whose reply cannot be mistaken for another one's.
    void expect_next_reply_is_a_radio_mistake()
    {
        send_raw(R"(["tessera","--radio=x","--ping"])");
        EXPECT_EQ(reply(), "1 ");
        EXPECT_EQ(recv(socket.get(), nullptr, 0, MSG_DONTWAIT | MSG_PEEK), -1) << "one reply only";
    }

    unique_fd socket;
};

TEST_F(daemon_clients, what_is_no_request_gets_no_reply)
{
    for (const std::string &bytes :
         {std::string("not JSON"), std::string("{}"), std::string("[1]"), std::string("7"),
          std::string("[\"a\""), std::string(65536, ' '), std::string(100000, 'x'),
          "[\"" + std::string(65530, 'y') + "\",\"z\"]", std::string(5000, '[')})
        send_raw(bytes);
    send(socket.get(), "", 0, 0);
    expect_next_reply_is_a_radio_mistake();
    EXPECT_EQ(count(daemon_log(), "Empty message from client"), 1);
}

TEST_F(daemon_clients, odd_requests_get_their_reply)
{
    std::string many = "[\"tessera\"";
    for (int i = 0; i < 10000; i++)
        many += ",\"a\"";
    // The last one is exactly as long as the daemon reads.
    for (const std::string &bytes :
         {std::string("[]"), many + "]", "[\"" + std::string(65532, 'y') + "\"]"}) {
        send_raw(bytes);
        EXPECT_EQ(reply(), "0 ");
    }
    send_raw(R"(["name \u00e9","-h"])");
    EXPECT_EQ(reply().find("1 usage: name \xC3\xA9\n -E Enable the modem.\n"), 0u);
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
    EXPECT_EQ(count(daemon_log(), "Could not"), 0);
}

TEST_F(daemon_clients, clients_that_die_or_do_not_read_disturb_nobody)
{
    send_raw(R"(["tessera","-i"])");
    socket.reset();
    for (int i = 0; i < 5; i++) {
        const running_client client = spawn_tessera({"-s"});
        kill(client.pid, SIGKILL);
        finish(client);
    }
    EXPECT_EQ(tessera({"-i"}).out.find("attached yes\n"), 0u);
}

TEST_F(daemon_clients, fifty_at_once_are_served)
{
    std::vector<running_client> clients;
    for (int i = 0; i < 50; i++)
        clients.push_back(spawn_tessera({i % 2 ? "-i" : "--connstatus"}));
    for (size_t i = 0; i < clients.size(); i++) {
        const client_result result = finish(clients[i]);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.code, i % 2 ? 0 : 1);
        EXPECT_EQ(result.out.find("attached yes\n") == 0, i % 2 == 1);
    }
}

TEST_F(daemon_clients, verbose_raises_the_log_for_good)
{
    EXPECT_EQ(count(daemon_log(), "DEBUG"), 0);
    EXPECT_EQ(tessera({"-v", "--radio=on"}).code, 0);
    EXPECT_EQ(count(daemon_log(), "sierra_directip_lte_radio(1)"), 1);
    EXPECT_EQ(tessera({"--radio=off"}).code, 0);
    EXPECT_EQ(count(daemon_log(), "sierra_directip_lte_radio(0)"), 1);
}
