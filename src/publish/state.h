// State publishers: a change of one of the record's three state fields is logged, pushed to infod
// under the status prefix and remembered. Safe from the main and the notification thread.
//
// Each returns 0 when nothing changed or infod took the value, -1 when infod did not; the change is
// remembered either way, so it is not pushed again before the state changes once more.
#pragma once

struct cellmodem;

int publish_attached(cellmodem &modem, bool attached);
int publish_device_state(cellmodem &modem, int state);  // device_state_value
int publish_session_state(cellmodem &modem, int state); // session_state_value

// "RESPONDING", "CONNECTED" and so on; "UNKNOWN" for any other number.
[[nodiscard]] const char *device_state_name(int state);
[[nodiscard]] const char *session_state_name(int state);
