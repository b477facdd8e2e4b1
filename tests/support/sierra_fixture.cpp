#include "support/sierra_fixture.h"

#include <sstream>

std::string sierra_fixture::record_lines(int (*record)(cellmodem &, FILE *, int), int result)
{
    memory_stream out;
    EXPECT_EQ(record(*modem, out.get(), output_lines), result);
    return out.text();
}

std::string sierra_fixture::failing_queries(int (*record)(cellmodem &, FILE *, int))
{
    const std::string whole = record_lines(record, 0);
    const auto answers = operations_;
    std::string all;
    for (int i = 0; i < swi_operation_count; i++) {
        const auto id = static_cast<swi_operation_id>(i);
        log.clear();
        refuse(id, swi_status_failed);
        memory_stream out;
        const int result = record(*modem, out.get(), output_lines);
        const std::lock_guard lock(mutex);
        operations_ = answers;
        if (result == 0 && out.text() == whole)
            continue;
        all += std::string(swi_operations[id].name) + " " + std::to_string(result) + ":";
        std::string kept;
        std::istringstream lines(whole);
        for (std::string line; std::getline(lines, line);)
            if (("\n" + out.text()).find("\n" + line + "\n") != std::string::npos)
                kept += line + "\n";
            else
                all += " " + line.substr(0, line.find(' '));
        EXPECT_EQ(out.text(), kept) << all;
        for (const std::string &line : log.lines())
            if (line.find("ailed") != line.npos)
                all += "; " + line;
        all += "\n";
    }
    return all;
}
