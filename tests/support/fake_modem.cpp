#include "support/fake_modem.h"

#include <sstream>

static fake_modem *current;

static std::string show(const char *text)
{
    return text ? text : "-";
}

template <class T>
static std::string show(const T *value)
{
    return value ? std::to_string(*value) : "-";
}

static std::string show(int value)
{
    return std::to_string(value);
}

template <class... Arguments>
static int call(const char *name, Arguments... arguments)
{
    std::string text;
    ((text += "," + show(arguments)), ...);
    current->calls.push_back(std::string(name) + "(" + (text.empty() ? "" : text.substr(1)) + ")");
    const auto result = current->results.find(name);
    return result == current->results.end() ? 0 : result->second;
}

static int record(const char *name, FILE *out, int mode)
{
    fprintf(out, "[%s]\n", name);
    return call(name, mode);
}

const cellmodem_slots fake_modem_slots = {
    .attach =
        [](cellmodem &modem) {
            const int result = call("attach");
            modem.attached = result == 0;
            return result;
        },
    .detach =
        [](cellmodem &modem) {
            const int result = call("detach");
            if (result == 0)
                modem.attached = false;
            return result;
        },
    .ping = [](cellmodem &) { return call("ping"); },
    .info = [](cellmodem &, FILE *out, int mode) { return record("info", out, mode); },
    .status = [](cellmodem &, FILE *out, int mode) { return record("status", out, mode); },
    .getsms = [](cellmodem &, FILE *out, int mode) { return record("getsms", out, mode); },
    .connect = [](cellmodem &, const char *dial,
                  bool voice) { return call("connect", dial, static_cast<int>(voice)); },
    .lte_connect =
        [](cellmodem &, const char *apn, const char *type, int auth, const char *user,
           const char *password) { return call("lte_connect", apn, type, auth, user, password); },
    .disconnect = [](cellmodem &) { return call("disconnect"); },
    .radio = [](cellmodem &, bool on) { return call("radio", static_cast<int>(on)); },
    .data_up = [](cellmodem &) { return call("data_up"); },
    .reset = [](cellmodem &) { return call("reset"); },
    .simispresent = [](cellmodem &) { return call("simispresent"); },
    .unlocksim = [](cellmodem &, const char *pin) { return call("unlocksim", pin); },
    .unblocksim = [](cellmodem &, const char *puk,
                     const char *pin) { return call("unblocksim", puk, pin); },
    .activate = [](cellmodem &, const char *msl, const char *mdn,
                   const char *msid) { return call("activate", msl, mdn, msid); },
    .enablegps = [](cellmodem &, int interval,
                    int accuracy) { return call("enablegps", interval, accuracy); },
    .disablegps = [](cellmodem &) { return call("disablegps"); },
    .setrat = [](cellmodem &, int rat) { return call("setrat", rat); },
    .setregion = [](cellmodem &, uint8_t region,
                    const char *password) { return call("setregion", +region, password); },
    .rtn = [](cellmodem &, const char *msl) { return call("rtn", msl); },
    .setsysselect = [](cellmodem &, const uint32_t *mode, const uint64_t *band, const uint64_t *lte,
                       const char *order) { return call("setsysselect", mode, band, lte, order); },
    .sendsms = [](cellmodem &, const char *path,
                  const char *smsc) { return call("sendsms", path, smsc); },
};

fake_modem::fake_modem()
{
    current = this;
    record.slots = fake_modem_slots;
    record.attached = true;
}

fake_modem::~fake_modem()
{
    current = nullptr;
}
