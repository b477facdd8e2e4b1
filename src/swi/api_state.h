// The state of the one API: shared by the files that open it, that carry requests and that carry
// notifications, and by nobody else.
#pragma once

#include "swi/api.h"
#include "swi/channel.h"

#include <array>
#include <atomic>
#include <mutex>

struct swi_api_state {
    std::atomic<bool> open = false;
    std::atomic<bool> initialised = false;
    std::atomic<bool> closing = false;
    swi_start_parameters start;

    // The request path. One request at a time; the mutex also keeps the channels in place.
    std::mutex request_mutex;
    swi_channels channels;
    uint32_t sequence = 0;
    uint32_t technology = 0; // the attached modem's, 0 while unknown
    swi_error_text error_text;
    std::array<uint8_t, swi_response_bytes_max> request_bytes;
    std::array<uint8_t, swi_response_bytes_max> response_bytes;

    // The notification channel as its reader sees it: empty after its end.
    std::mutex notification_mutex;
    std::shared_ptr<unique_fd> notification;
    unique_fd wake_reader, wake_writer; // a new channel, or the end, is announced here

    std::mutex callback_mutex; // held while a callback runs
    swi_callback callback = nullptr;
    void *context = nullptr;
    int32_t words[2] = {};
};

extern swi_api_state swi_api;
