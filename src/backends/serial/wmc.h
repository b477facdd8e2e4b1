// The WMC exchange of Pantech modems: one binary command goes out through an AT command on the
// command port, one binary reply comes in. Nothing is held between commands: each takes the lock
// file, opens the port, and gives both back, so that other programs can use the modem in between.
//
// A frame is "AT*WMC=", the start byte 0xC8, the command's body and two check bytes, and a carriage
// return. From the body on, a byte below 0x20 is sent as 0x7D and the byte XOR 0x20. The check bytes
// are part of the frames below; nothing here computes them. A reply is 0xC8, the command's code, its
// fields at fixed offsets, and "00~". Of the commands only their frames and the lengths of their
// replies are known, those in the table.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

struct cellmodem;
struct serial_port;

constexpr const char *wmc_lock_path = "/var/lock/tessera-pantech-wmc.lck";

constexpr uint8_t wmc_start = 0xC8;
constexpr std::string_view wmc_reply_end = "00~";
constexpr size_t wmc_reply_bytes_min = 5;

// The commands by their codes.
enum wmc_command : uint8_t {
    wmc_get_info = 0x06,
    wmc_get_ip_config = 0x0A,
    wmc_get_status = 0x0B,
    wmc_command_11 = 0x11, // known to the modems, without a use here; as is 0x54
    wmc_get_sms = 0x13,
    wmc_get_eps = 0x4D,
    wmc_command_54 = 0x54,
    wmc_send_sms = 0x56, // has no fixed frame
};

struct wmc_frame {
    uint8_t code;
    std::string_view bytes;
    size_t reply_bytes; // how many are waited for
};

// The row of a command, or null.
[[nodiscard]] const wmc_frame *wmc_find_frame(uint8_t code);

// Takes the lock file: three tries, three seconds apart. The file holds the owner's process id; one
// whose recorded owner is dead is taken over, one without a readable id is respected. 0, or -1 after
// logging why not.
[[nodiscard]] int pantech_wmc_lock();

// Gives the lock file back: whoever made it, it is gone afterwards. Failures are logged.
void pantech_wmc_unlock();

// Opens and closes the command port. 0, or -1 after logging why not.
[[nodiscard]] int pantech_wmc_openwmcdevice(serial_port &port);
void pantech_wmc_closewmcdevice(serial_port &port);

// Writes a frame. 0, or -1; a modem that takes nothing for 1,000 tries fails without a log line.
[[nodiscard]] int pantech_wmc_sendwmccommand(serial_port &port, std::span<const char> bytes);

// Waits up to a second (a modem's answer: under the time scale) for a reply and takes what is there
// at once: a reply that comes in pieces with a pause in between is cut after the first. It is empty
// when the port hung up, and may exceed `wanted`, because the last read asks for that many again. 0,
// or -1 and an empty reply after logging why there is none.
[[nodiscard]] int pantech_wmc_read(serial_port &port, std::vector<uint8_t> &reply, size_t wanted);

// Takes the lock, logs `opening`, opens the port, runs `work`, logs `closing` and gives all back.
// The result of `work`, or -1 when it did not get that far.
[[nodiscard]] int pantech_wmc_with_device(const char *opening, const char *closing,
                                          const std::function<int(serial_port &)> &work);

// One exchange: sends the command's frame and reads the reply, of at least wmc_reply_bytes_min
// bytes. Publishes whether the modem responds. An unexpected beginning or end of the reply is only
// logged. 0, or -1 after logging why there is no reply.
[[nodiscard]] int pantech_wmc_sendcommand(cellmodem &modem, uint8_t code,
                                          std::vector<uint8_t> &reply);
