#include "support/sierra_fixture.h"

#include <algorithm>
#include <sstream>

std::string sierra_fixture::record_lines(int (*record)(cellmodem &, FILE *, int), int result)
{
    memory_stream out;
    EXPECT_EQ(record(*modem, out.get(), output_lines), result);
    return out.text();
}

static std::string lines_without(const std::string &record, const std::vector<std::string> &missing)
{
    std::string kept;
    std::istringstream whole(record);
    for (std::string line; std::getline(whole, line);)
        if (std::find(missing.begin(), missing.end(), line.substr(0, line.find(' '))) ==
            missing.end())
            kept += line + "\n";
    return kept;
}

void sierra_fixture::check_failing_queries(const std::vector<failing_query> &rows)
{
    const std::string info = record_lines(modem->slots.info, 0);
    const std::string status = record_lines(modem->slots.status, 0);
    for (const failing_query &row : rows) {
        const std::string &whole = row.info ? info : status;
        const std::string expected = lines_without(whole, row.missing);
        ASSERT_EQ(std::count(whole.begin(), whole.end(), '\n') -
                      std::count(expected.begin(), expected.end(), '\n'),
                  static_cast<long>(row.missing.size()));
        log.clear();
        refuse_operation(row.id, swi_status_failed);
        EXPECT_EQ(record_lines(row.info ? modem->slots.info : modem->slots.status, -1), expected)
            << row.line;
        EXPECT_EQ(log.count(row.line), 1) << row.line;
        answer_as_before(row.id);
    }
}
