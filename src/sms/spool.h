// Short messages as files: that is how the appliance's other services get received messages and hand
// over those to be sent. All back-ends read and write them here.
//
// A received message is a file recv_XXXXXX in the incoming spool:
//
//   From: NUMBER
//
//   TEXT, as received; no line feed is added
//
// A message to be sent is a file of the user's: a four-character tag (it is not looked at; "To: ")
// and the number, a line that is ignored, and the text.
#pragma once

#include <string>

constexpr const char *sms_spool_path = "/var/spool/sms/incoming";

// Lines of a message to be sent are read in pieces of so many characters; what is longer goes on as
// the next line.
constexpr size_t sms_line_max = 159;

// Puts a received message into the spool, readable by everybody. The file appears under its name as
// a whole or not at all, also where /tmp is another file system. 1 when it is in the spool, 0 after
// logging why not; what could not be moved stays in /tmp, readable by its owner alone, until a later
// message could be moved or not.
[[nodiscard]] int cellmodem_sms_writefile(const std::string &number, const std::string &text);

// Reads a message to be sent from `path`, which is the user's and taken as it stands. Both outputs
// are cleared first; number_out gets at most number_size bytes and text_out at most text_size - 1,
// both without a line feed at their end; a UTF-8 text is cut between two characters. 1 when the file was read, 0 after logging why not.
[[nodiscard]] int cellmodem_sms_readfile(const char *path, std::string &number_out,
                                         size_t number_size, std::string &text_out,
                                         size_t text_size);
