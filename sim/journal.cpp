#include "sim/journal.h"

#include "sim/bytes.h"
#include "sim/report.h"

#include <fcntl.h>

int journal::open(const std::string &path)
{
    file_.reset(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    return file_ ? 0 : -1;
}

void journal::line(char mark, std::string_view bytes)
{
    if (!file_)
        return;
    const std::string text = std::string(1, mark) + ' ' + bytes_escape(bytes) + '\n';
    if (write(file_.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        sim_report("Could not write the journal");
}
