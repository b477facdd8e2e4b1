#include "command/cmdsock.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

#include <cstring>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

static std::vector<std::string> strings(argument_vector &arguments)
{
    return {arguments.argv(), arguments.argv() + arguments.argc()};
}

TEST(cmdsock, requests_that_are_none)
{
    for (const char *text :
         {"", "nonsense", "{\"a\":1}", "7", "\"text\"", "null", "[\"a\",1]", "[\"a\",null]",
          "[[\"a\"]]", "[\"a\"", "[\"a\"] x", "[\"\xFF\"]", "[\"a\\u0000b\"]"}) {
        argument_vector arguments;
        EXPECT_EQ(cmdsock_unmarshal_request(text, arguments), -1) << text;
        EXPECT_EQ(arguments.argc(), 0);
    }
}

TEST(cmdsock, requests_become_argument_vectors)
{
    argument_vector arguments;
    ASSERT_EQ(cmdsock_unmarshal_request("[]", arguments), 0);
    EXPECT_EQ(arguments.argc(), 0);
    EXPECT_EQ(arguments.argv()[0], nullptr);
    ASSERT_EQ(
        cmdsock_unmarshal_request(" [ \"tessera\" , \"-s\", \"\", \"\\u00e9\\n\" ] ", arguments),
        0);
    EXPECT_EQ(strings(arguments), (std::vector<std::string>{"tessera", "-s", "", "\xC3\xA9\n"}));
    EXPECT_EQ(arguments.argv()[4], nullptr);
}

TEST(cmdsock, replies_are_compact_and_ordered)
{
    EXPECT_STREQ(cmdsock_marshal_reply(1, "a \"b\"\n").get(),
                 "{\"results\":\"a \\\"b\\\"\\n\",\"ret_code\":1}");
    const log_capture log;
    EXPECT_EQ(cmdsock_marshal_reply(0, "bad \xFF"), nullptr);
    EXPECT_EQ(cmdsock_marshal_reply(0, nullptr), nullptr);
    EXPECT_TRUE(log.has("'bad \xFF' len: 5"));
    EXPECT_TRUE(log.has("'(null)' len: -1"));
    EXPECT_TRUE(log.has("300 Failed to marshal results: "));
}

class channel : public testing::Test
{
protected:
    void SetUp() override
    {
        server = cmdsock_server_open(cmdsock_path);
        ASSERT_TRUE(server);
        client = cmdsock_client_open("/tmp/client", cmdsock_path, error, sizeof(error));
        ASSERT_TRUE(client) << error;
    }

    int request(const std::vector<const char *> &argv)
    {
        return cmdsock_send_request(client.get(), static_cast<int>(argv.size()), argv.data(), error,
                                    sizeof(error));
    }

    // A request that the server has read and not answered yet.
    void request_from(const unique_fd &fd)
    {
        ASSERT_EQ(send(fd.get(), "[]", 2, 0), 2);
        ASSERT_EQ(cmdsock_recv_request(server.get(), sender, arguments), 0);
    }

    int reply(int answer_code, const std::string &answer)
    {
        return cmdsock_send_reply(server.get(), sender, answer_code, answer.c_str());
    }

    int receive_reply()
    {
        return cmdsock_recv_reply(client.get(), code, results, error, sizeof(error));
    }

    temp_root root;
    log_capture log;
    unique_fd server, client;
    cmdsock_sender sender;
    argument_vector arguments;
    int code = 7;
    std::string results = "untouched";
    char error[256] = "";
};

TEST_F(channel, a_request_and_its_reply)
{
    EXPECT_EQ(request({"tessera", "-x", "grün"}), 0) << error;
    EXPECT_EQ(cmdsock_recv_request(server.get(), sender, arguments), 0);
    EXPECT_EQ(strings(arguments), (std::vector<std::string>{"tessera", "-x", "grün"}));
    EXPECT_EQ(reply(1, "text\n"), 0);
    EXPECT_EQ(receive_reply(), 0) << error;
    EXPECT_EQ(code, 1);
    EXPECT_EQ(results, "text\n");
}

TEST_F(channel, requests_that_cannot_be_sent)
{
    EXPECT_EQ(request({"tessera", "\xFF"}), -1);
    EXPECT_STREQ(error, "Failed to build JSON message");
    EXPECT_EQ(request({"tessera", std::string(cmdsock_datagram_max, 'x').c_str()}), -1);
    EXPECT_STREQ(error, "Message is too long");
}

TEST_F(channel, a_server_that_is_gone_is_told_in_the_log_too)
{
    server.reset();
    EXPECT_EQ(request({"tessera"}), -1);
    EXPECT_STREQ(error, "Connection refused");
    EXPECT_EQ(log.count("700 Could not send message to server: Connection refused"), 1);
    client.reset(open("/", O_RDONLY | O_DIRECTORY));
    EXPECT_EQ(receive_reply(), -1);
    EXPECT_EQ(log.count("700 Could not receive message from server: "
                        "Socket operation on non-socket"),
              1);
}

TEST_F(channel, only_the_owner_and_the_group_may_connect)
{
    struct stat status;
    ASSERT_EQ(stat(root.place(cmdsock_path).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0660u);
    root.write("/etc/group", "root:x:0:\ntessera:x:4321:someone\n");
    server = cmdsock_server_open(cmdsock_path);
    ASSERT_EQ(stat(root.place(cmdsock_path).c_str(), &status), 0);
    EXPECT_EQ(status.st_gid, geteuid() == 0 ? 4321u : getegid());
}

TEST_F(channel, an_empty_datagram_and_a_gone_client)
{
    ASSERT_EQ(send(client.get(), "", 0, 0), 0);
    EXPECT_EQ(cmdsock_recv_request(server.get(), sender, arguments), -1);
    EXPECT_EQ(log.count("300 Empty message from client"), 1);

    request_from(client);
    client.reset();
    unlink(root.place("/tmp/client").c_str());
    EXPECT_EQ(reply(0, "late"), -1);
    EXPECT_EQ(log.count("700 Could not send message to tessera client: No such file or directory,"
                        " it may have been terminated early"),
              1);
}

TEST_F(channel, a_client_that_does_not_read_delays_nobody)
{
    request_from(client);
    const std::string large(60000, 'x');
    int sent = 0;
    while (sent < 10000 && reply(0, large) == 0)
        sent++;
    EXPECT_LT(sent, 10000) << "the queue must fill and the send return";
    EXPECT_TRUE(log.has("it may have been terminated early"));
    EXPECT_TRUE(log.has("400 A reply of 60027 bytes was not taken: "));
    EXPECT_EQ(reply(0, std::string(10 << 20, 'x')), -1);
    EXPECT_TRUE(log.has("400 A reply of 10485787 bytes is too long to be sent"));
}

// Unread replies count against the daemon's buffer, not against those who leave them unread.
TEST_F(channel, clients_that_do_not_read_take_no_reply_from_others)
{
    const std::string text(7000, 'x');
    std::vector<unique_fd> idle;
    for (const char *path : {"/tmp/idle1", "/tmp/idle2", "/tmp/idle3"}) {
        idle.push_back(cmdsock_client_open(path, cmdsock_path, error, sizeof(error)));
        ASSERT_TRUE(idle.back()) << error;
        for (int i = 0; i < 10; i++) {
            request_from(idle.back());
            ASSERT_EQ(reply(0, text), 0) << path << i;
        }
    }
    request_from(client);
    EXPECT_EQ(reply(0, text), 0);
    EXPECT_EQ(receive_reply(), 0) << error;
    EXPECT_EQ(results, text);
}

TEST_F(channel, broken_replies)
{
    for (const char *reply : {"", "x", "[]", "{\"results\":\"a\"}", "{\"ret_code\":0}",
                              "{\"results\":1,\"ret_code\":0}",
                              "{\"results\":\"\",\"ret_code\":\"0\"}", "{\"results\":\"cut"}) {
        request_from(client);
        ASSERT_EQ(sendto(server.get(), reply, strlen(reply), 0,
                         reinterpret_cast<sockaddr *>(&sender.address), sizeof(sender.address)),
                  static_cast<ssize_t>(strlen(reply)));
        EXPECT_EQ(receive_reply(), -1);
        EXPECT_EQ(code, 7) << reply;
        EXPECT_EQ(results, "untouched") << reply;
        EXPECT_STREQ(error, *reply ? "incomplete reply" : "empty message");
    }
}

TEST(cmdsock, opening_says_what_is_wrong)
{
    const temp_root root;
    const log_capture log;
    char error[256] = "";
    EXPECT_FALSE(cmdsock_client_open("/tmp/c", cmdsock_path, error, sizeof(error)));
    EXPECT_STREQ(error, "socket /var/run/tessera.cmd: No such file or directory");
    EXPECT_FALSE(cmdsock_client_open("/absent/c", cmdsock_path, error, sizeof(error)));
    EXPECT_STREQ(error, "socket /absent/c: No such file or directory");
    const std::string deep = "/" + std::string(120, 'd');
    EXPECT_FALSE(cmdsock_client_open(deep.c_str(), cmdsock_path, error, sizeof(error)));
    EXPECT_EQ(error, "socket " + deep + ": File name too long");
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  "700 Unable to connect socket /var/run/tessera.cmd: No such file or directory",
                  "700 Unable to bind socket /absent/c: No such file or directory",
                  "700 Unable to open socket " + deep + ": File name too long"}));
    EXPECT_FALSE(cmdsock_server_open(deep.c_str()));
    EXPECT_EQ(log.count("300 Could not bind server socket to " + deep + ": File name too long"), 1);
    EXPECT_FALSE(cmdsock_server_open("/absent/socket"));
}
