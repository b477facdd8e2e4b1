#include "sms/spool.h"

#include "platform/log.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "platform/unique_fd.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>

constexpr size_t tag_length = 4; // "To: "
constexpr mode_t directory_mode = 0755;
constexpr mode_t file_mode = 0644; // for the other services
constexpr mode_t private_mode = 0600;

// ---- received messages

// Writes the whole file: after a power cut, too, its name must not show less than the message. 0, or
// -1 with errno.
static int fill(const unique_fd &fd, std::string_view content)
{
    while (!content.empty()) {
        const ssize_t written = write(fd.get(), content.data(), content.size());
        if (written < 0 && errno != EINTR)
            return -1;
        content.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
    }
    return fsync(fd.get());
}

// Renames a file that is for everybody from then on, and for nobody else before. 0, or -1 with errno.
static int publish_file(const unique_fd &fd, const std::string &from, const std::string &to)
{
    if (fchmod(fd.get(), file_mode) != 0)
        return -1;
    if (rename(from.c_str(), to.c_str()) == 0)
        return 0;
    const int error = errno;
    (void)fchmod(fd.get(), private_mode);
    errno = error;
    return -1;
}

// Removes a file and leaves errno alone.
static void discard(const std::string &place)
{
    const int error = errno;
    unlink(place.c_str());
    errno = error;
}

// Writes the message a second time, under a hidden name beside the final one: a rename works within
// one file system only.
static int fill_beside(const std::string &name, const std::string &final_place,
                       std::string_view content)
{
    const std::string hidden = rooted(std::string(sms_spool_path) + "/." + name);
    const unique_fd fd(open(hidden.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, private_mode));
    if (!fd)
        return -1;
    if (fill(fd, content) == 0 && publish_file(fd, hidden, final_place) == 0)
        return 0;
    discard(hidden);
    return -1;
}

// A message is in its file before it gets its name; the name is the directory's, and is flushed with
// it. The message is there either way, so a directory that cannot be flushed is no failure: read
// again, the message would be there twice.
static void flush_spool()
{
    const unique_fd fd(open(rooted(sms_spool_path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd || fsync(fd.get()) != 0)
        log_message(log_warning, "Could not flush %s: %s", sms_spool_path, strerror(errno));
}

// 0, or -1 with errno; then the temporary file is still there.
static int move_to_spool(const unique_fd &fd, const std::string &temporary_place,
                         const std::string &name, const std::string &final_place,
                         std::string_view content)
{
    if (!dir_exists(sms_spool_path) && make_directories(sms_spool_path, directory_mode) != 0)
        return -1;
    if (publish_file(fd, temporary_place, final_place) == 0)
        return 0;
    if (errno != EXDEV || fill_beside(name, final_place, content) != 0)
        return -1;
    discard(temporary_place);
    return 0;
}

// The file that could not be moved last. A message that is read again leaves another each time, so
// the next one, moved or left, takes its place.
static void replace_leftover(const std::string &place)
{
    static std::mutex mutex;
    static std::string leftover;
    const std::lock_guard lock(mutex);
    if (!leftover.empty())
        discard(leftover);
    leftover = place;
}

int cellmodem_sms_writefile(const std::string &number, const std::string &text)
{
    std::string place = rooted("/tmp/recv_XXXXXX");
    const unique_fd fd(mkostemp(place.data(), O_CLOEXEC));
    const std::string name = place.substr(place.rfind('/') + 1);
    const std::string temporary = "/tmp/" + name;
    const std::string final_path = std::string(sms_spool_path) + "/" + name;
    log_message(log_debug, "cellmodem_sms_writefile(%s, %s, %s)", temporary.c_str(), number.c_str(),
                text.c_str());
    log_message(log_info, "Received new SMS from %s -> %s", number.c_str(), final_path.c_str());
    if (!fd) {
        log_message(log_error, "Could not open file %s", temporary.c_str());
        return 0;
    }
    const std::string content = "From: " + number + "\n\n" + text;
    if (fill(fd, content) != 0) {
        discard(place);
        log_message(log_error, "Failed writing: %s: %s", temporary.c_str(), strerror(errno));
        return 0;
    }
    const bool moved = move_to_spool(fd, place, name, rooted(final_path), content) == 0;
    replace_leftover(moved ? "" : place);
    if (!moved) {
        log_message(log_error, "Failed moving: %s -> %s: %s", temporary.c_str(), final_path.c_str(),
                    strerror(errno));
        return 0;
    }
    flush_spool();
    return 1;
}

// ---- messages to be sent

using owned_stream = std::unique_ptr<FILE, int (*)(FILE *)>;

// Opens a regular file for reading. A pipe, which a user may name as well, must not hold up the
// daemon, so nothing here waits.
static owned_stream open_message(const char *path)
{
    unique_fd fd(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status;
    owned_stream stream(nullptr, fclose);
    if (!fd || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return stream;
    stream.reset(fdopen(fd.get(), "r"));
    if (stream)
        fd.release();
    return stream;
}

static bool drop_line_feed(std::string &text)
{
    if (!text.ends_with('\n'))
        return false;
    text.pop_back();
    return true;
}

static void append(std::string &text, std::string_view more, size_t bytes_max)
{
    text += more.substr(0, bytes_max - std::min(bytes_max, text.size()));
}

// 0, or -1 when the file could not be read to its end.
static int read_lines(FILE *stream, std::string &number_out, size_t number_size,
                      std::string &text_out, size_t text_max)
{
    char piece[sms_line_max + 1];
    for (int line = 1; fgets(piece, sizeof(piece), stream); line++) {
        const std::string_view content(piece);
        if (line == 1 && content.size() > tag_length)
            append(number_out, content.substr(tag_length), number_size);
        else if (line > 2)
            append(text_out, content, text_max);
    }
    drop_line_feed(number_out);
    return ferror(stream) ? -1 : 0;
}

// Cuts a UTF-8 text between two characters, any other where it is.
static void cut(std::string &text, size_t bytes_max)
{
    const std::string_view whole = text_cut(text, bytes_max);
    text.resize(text_is_utf8(whole) ? whole.size() : std::min(text.size(), bytes_max));
}

int cellmodem_sms_readfile(const char *path, std::string &number_out, size_t number_size,
                           std::string &text_out, size_t text_size)
{
    log_message(log_debug, "cellmodem_sms_readfile(%s)", path);
    number_out.clear();
    text_out.clear();
    struct stat status;
    if (stat(path, &status) != 0) {
        log_message(log_error, "No such file: %s", path);
        return 0;
    }
    const owned_stream stream = open_message(path);
    // One byte more tells whether the text goes on within a character.
    if (!stream || read_lines(stream.get(), number_out, number_size, text_out, text_size) != 0) {
        log_message(log_error, "Could not open file %s", path);
        number_out.clear();
        text_out.clear();
        return 0;
    }
    cut(text_out, text_size > 0 ? text_size - 1 : 0);
    if (drop_line_feed(text_out))
        log_message(log_debug, "Truncating new line from text buffer");
    return 1;
}
