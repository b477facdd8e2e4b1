// A test with a modem of one of the families behind the SDK, and a server that answers as each case
// needs it: every request succeeds with zeros, but those that the case says something about.
#pragma once

#include "cellmodem/cellmodem.h"
#include "support/fake_infod.h"
#include "support/memory_stream.h"
#include "support/swi_fixture.h"

#include <map>
#include <mutex>

class sierra_fixture : public swi_fixture
{
protected:
    using answer_function = std::function<packet(const fake_request &)>; // an empty one: silence

    explicit sierra_fixture(int (*init)(cellmodem &)) : init_(init) {}

    void SetUp() override
    {
        install_program("/bin/swisdk");
        install_program("/bin/sh");
        ASSERT_EQ(cellmodem_create(&modem), 0);
        ASSERT_EQ(init_(*modem), 0);
        server.set_answer([this](const fake_request &request) { return answer(request); });
    }
    void TearDown() override { cellmodem_destroy(&modem); }

    void answer_with(swi_operation_id id, answer_function function)
    {
        const std::lock_guard lock(mutex);
        operations_[id] = std::move(function);
    }

    template <class Record>
    void answer_record(swi_operation_id id, const Record &record)
    {
        answer_with(id, [=](const fake_request &request) { return respond_with(request, record); });
    }

    void refuse(swi_operation_id id, uint32_t status, const std::string &text = "")
    {
        answer_with(id, [=](const fake_request &request) {
            return respond(request, status, packet(text.begin(), text.end()));
        });
    }

    // The status of the request that enables it.
    void refuse_notification(uint32_t id, uint32_t status)
    {
        const std::lock_guard lock(mutex);
        notifications_[swi_object_notification + id] = status;
    }

    // Forgets what was said of it.
    void answer_as_before(swi_operation_id id)
    {
        const std::lock_guard lock(mutex);
        operations_.erase(id);
    }

    void attach() { ASSERT_EQ(modem->slots.attach(*modem), 0); }

    static bool is_operation(const fake_request &request, swi_operation_id id)
    {
        const swi_operation &row = swi_operations[id];
        return request.header.kind == row.kind &&
               (row.kind != swi_kind_object ||
                (request.object.object == row.object && request.object.operation == row.operation));
    }

    [[nodiscard]] std::vector<fake_request> requests_of(swi_operation_id id)
    {
        std::vector<fake_request> found;
        for (const fake_request &request : server.requests())
            if (is_operation(request, id))
                found.push_back(request);
        return found;
    }

    // What an operation's last request carried.
    [[nodiscard]] packet last_sent(swi_operation_id id)
    {
        const std::vector<fake_request> all = requests_of(id);
        EXPECT_FALSE(all.empty()) << swi_operations[id].name;
        return all.empty() ? packet() : all.back().parameters;
    }

    // A record in lines, which must have this result.
    std::string record_lines(int (*record)(cellmodem &, FILE *, int), int result);

    // Each of a record's queries fails in turn: its name, the record's result, the keys that are
    // missing then, and what was logged of failures.
    std::string failing_queries(int (*record)(cellmodem &, FILE *, int));

    cellmodem *modem = nullptr;
    fake_infod infod;
    std::mutex mutex;

private:
    packets answer(const fake_request &request)
    {
        const std::lock_guard lock(mutex);
        for (const auto &[id, function] : operations_)
            if (is_operation(request, id))
                return said(function(request));
        const auto found = notifications_.find(request.object.object);
        return said(found != notifications_.end() ? respond(request, found->second)
                                                  : succeed(request));
    }

    static packets said(const packet &answer)
    {
        return answer.empty() ? packets() : packets{answer};
    }

    int (*init_)(cellmodem &);
    std::map<swi_operation_id, answer_function> operations_;
    std::map<uint32_t, uint32_t> notifications_; // by object

protected:
    fake_swi_server server; // its thread uses the members above
};
