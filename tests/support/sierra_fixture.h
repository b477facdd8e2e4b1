// A test with a modem of one of the families behind the SDK, and a server that answers as each case
// needs it: every request succeeds with zeros, but those that the case says something about.
#pragma once

#include "cellmodem/cellmodem.h"
#include "support/fake_infod.h"
#include "support/memory_stream.h"
#include "support/swi_fixture.h"

#include <map>
#include <mutex>

#include <sys/stat.h>

class sierra_fixture : public swi_fixture
{
protected:
    using answer_function = std::function<packet(const fake_request &)>;

    explicit sierra_fixture(int (*init)(cellmodem &)) : init_(init) {}

    void SetUp() override
    {
        install_program();
        ASSERT_EQ(cellmodem_create(&modem), 0);
        ASSERT_EQ(init_(*modem), 0);
        server.set_answer([this](const fake_request &request) { return answer(request); });
    }
    void TearDown() override { cellmodem_destroy(&modem); }

    void install_program() const
    {
        root.write("/bin/swisdk", "#!/bin/sh\n");
        ASSERT_EQ(chmod(root.place("/bin/swisdk").c_str(), 0755), 0);
    }

    void answer_with(uint16_t object, answer_function function)
    {
        const std::lock_guard lock(mutex);
        objects_[object] = std::move(function);
    }

    // The same for one of an object's operations; these are looked at first.
    void answer_operation(swi_operation_id id, answer_function function)
    {
        const std::lock_guard lock(mutex);
        operations_[id] = std::move(function);
    }

    template <class Record>
    void answer_record(swi_operation_id id, const Record &record)
    {
        answer_operation(
            id, [=](const fake_request &request) { return respond_with(request, record); });
    }

    void refuse(uint16_t object, uint32_t status, const std::string &text = "")
    {
        answer_with(object, refusal(status, text));
    }

    void refuse_operation(swi_operation_id id, uint32_t status)
    {
        answer_operation(id, refusal(status, ""));
    }

    // Forgets what was said of it.
    void answer_as_before(swi_operation_id id)
    {
        const std::lock_guard lock(mutex);
        operations_.erase(id);
    }

    void keep_silent(uint16_t object, bool silent)
    {
        const std::lock_guard lock(mutex);
        if (silent)
            silent_[object] = true;
        else
            silent_.erase(object);
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

    [[nodiscard]] fake_request last_request(uint16_t object)
    {
        const auto all = server.requests();
        for (auto at = all.rbegin(); at != all.rend(); ++at)
            if (at->object.object == object)
                return *at;
        ADD_FAILURE() << "no request of object " << object;
        return {};
    }

    // A record in lines, which must have this result.
    std::string record_lines(int (*record)(cellmodem &, FILE *, int), int result);

    // One query fails after the other: which keys it takes with it, and what it says.
    struct failing_query {
        swi_operation_id id;
        bool info; // in this record, otherwise in the status
        std::vector<std::string> missing;
        const char *line;
    };
    void check_failing_queries(const std::vector<failing_query> &rows);

    cellmodem *modem = nullptr;
    fake_infod infod;
    std::mutex mutex;

private:
    static answer_function refusal(uint32_t status, const std::string &text)
    {
        return [=](const fake_request &request) {
            return respond(request, status, packet(text.begin(), text.end()));
        };
    }

    packets answer(const fake_request &request)
    {
        const packet zeros(request.header.kind == swi_kind_air_server ? 1008 : 900);
        const std::lock_guard lock(mutex);
        if (silent_.contains(request.object.object))
            return {};
        for (const auto &[id, function] : operations_)
            if (is_operation(request, id))
                return packets{function(request)};
        if (const auto found = objects_.find(request.object.object); found != objects_.end())
            return packets{found->second(request)};
        return packets{respond(request, swi_status_ok, zeros)};
    }

    int (*init_)(cellmodem &);
    std::map<uint16_t, answer_function> objects_;
    std::map<swi_operation_id, answer_function> operations_;
    std::map<uint16_t, bool> silent_;

protected:
    fake_swi_server server; // its thread uses the members above
};
