#include "sim/gobi.h"

#include "sim/root.h"

#include <array>
#include <memory>

#include <unistd.h>

// ---- messages

struct gobi_service {
    qmi_version version;
    std::span<const gobi_row> (*rows)();
};

static constexpr std::array services = {
    gobi_service{{qmi_wds, "WDS", 1, 36}, gobi_wds_rows},
    gobi_service{{qmi_dms, "DMS", 1, 14}, gobi_dms_rows},
    gobi_service{{qmi_nas, "NAS", 1, 25}, gobi_nas_rows},
    gobi_service{{qmi_wms, "WMS", 1, 10}, gobi_wms_rows},
    gobi_service{{qmi_pds, "PDS", 1, 18}, gobi_pds_rows},
};

static constexpr std::array versions = [] {
    std::array<qmi_version, services.size()> all = {};
    for (size_t i = 0; i < services.size(); i++)
        all[i] = services[i].version;
    return all;
}();

const gobi_row *gobi_find(uint8_t service, uint16_t id)
{
    for (const gobi_service &one : services)
        if (one.version.service == service)
            for (const gobi_row &row : one.rows())
                if (row.id == id)
                    return &row;
    return nullptr;
}

uint16_t gobi_execute(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    const gobi_row *row = gobi_find(call.client.service, call.id);
    return row && row->run ? row->run(modem, call, answer)
                           : uint16_t{qmi_error_invalid_qmi_command};
}

// ---- the modem of this process

static gobi_modem &the_modem()
{
    static gobi_modem modem = [] {
        gobi_modem fresh;
        (void)gobi_preset(fresh, "LTE");
        return fresh;
    }();
    return modem;
}

static std::unique_ptr<qmi_server> the_server;
static sim_services *the_services;

static const qmi_message_info *find_info(uint8_t service, uint16_t id)
{
    const gobi_row *row = gobi_find(service, id);
    return row ? &row->info : nullptr;
}

static int64_t takes_ms(uint8_t service, uint16_t id)
{
    static constexpr uint16_t start_network = 0x0020;
    const gobi_state &state = the_modem().state;
    return service == qmi_wds && id == start_network && !state.session ? state.connect_ms : 0;
}

static qmi_pace pace()
{
    const gobi_state &state = the_modem().state;
    return {state.answer_ms, state.in_series, state.under_way_max, state.drops_surplus,
            state.client_ids};
}

// A session lives as long as the client id that started it.
static void end_orphaned_session(gobi_modem &modem)
{
    static constexpr uint16_t client_ended = 2;
    if (!modem.state.session || modem.session_client == 0)
        return;
    for (const qmi_client *client : the_server->clients_of(qmi_wds))
        if (client->id == modem.session_client)
            return;
    gobi_end_session(modem, client_ended);
}

static void settle()
{
    gobi_modem &modem = the_modem();
    gobi_settle(modem);
    end_orphaned_session(modem);
    gobi_announce(modem, *the_server);
    if (!modem.restart)
        return;
    modem.restart = false;
    gobi_reboot(modem);
    gobi_announce(modem, *the_server);
    the_services->log.note("restarted");
    the_server->restarted();
    if (modem.state.reset_hangup_ms >= 0)
        the_server->hang_up({modem.state.reset_hangup_ms, false});
}

static const qmi_hooks gobi_hooks = {
    .services = versions,
    .find = find_info,
    .execute = [](const qmi_call &call,
                  tlv_writer &answer) { return gobi_execute(the_modem(), call, answer); },
    .indication = [](uint8_t service, uint16_t id,
                     tlv_writer &out) { return gobi_indication(the_modem(), service, id, out); },
    .takes_ms = takes_ms,
    .pace = pace,
    .settle = settle,
    .reboot =
        [] {
            gobi_reboot(the_modem());
            the_server->restarted();
            settle();
        },
};

// ---- the family

struct marker_row {
    const char *marker;
    bool (*applies)(const gobi_state &);
};

static constexpr std::array marker_rows = {
    marker_row{"cellmodem_is_lte", [](const gobi_state &state) { return state.modem == "LTE"; }},
    marker_row{"cellmodem_is_cdma_gobi",
               [](const gobi_state &state) { return state.modem == "CDMA"; }},
    marker_row{"cellmodem_is_multicarrier",
               [](const gobi_state &state) { return state.multicarrier; }},
};

// Which markers there are besides the family's own depends on the modem.
static void write_markers()
{
    for (const marker_row &row : marker_rows) {
        const std::string path = the_services->root + "/var/run/.modem/" + row.marker;
        if (!row.applies(the_modem().state))
            unlink(path.c_str());
        else if (access(path.c_str(), F_OK) != 0 && file_replace(path, "") != 0)
            the_services->log.note("could not write " + path);
    }
}

static void every(const std::function<int64_t()> &period_ms, const std::function<void()> &action)
{
    the_services->loop.after(period_ms(), [period_ms, action] {
        action();
        every(period_ms, action);
    });
}

static int gobi_start(sim_services &given, std::string &reason)
{
    gobi_modem &modem = the_modem();
    the_services = &given;
    modem.power_up = modem.state;
    modem.power_up_profiles = modem.profiles;
    write_markers();
    the_server = std::make_unique<qmi_server>(given, gobi_hooks);
    modem.abort = [](const qmi_client &client, uint16_t transaction) {
        return the_server->abort(client, transaction);
    };
    if (the_server->open(reason) != 0)
        return -1;
    settle();
    every([] { return the_modem().state.nmea_ms; },
          [] { gobi_send_position(the_modem(), *the_server); });
    every([] { return int64_t{1000}; }, [] { gobi_send_statistics(the_modem(), *the_server); });
    return 0;
}

static void gobi_stop()
{
    the_server.reset();
}

static int gobi_merge_state(json_t *state, json_refusal &refusal)
{
    const std::string kind = the_modem().state.modem;
    const bool multicarrier = the_modem().state.multicarrier;
    if (gobi_merge(the_modem(), state, refusal) != 0)
        return -1;
    if (!the_server)
        return 0;
    if (the_modem().state.modem != kind || the_modem().state.multicarrier != multicarrier)
        write_markers();
    settle();
    return 0;
}

static json_ref gobi_dump_state()
{
    json_ref object = gobi_dump(the_modem());
    const auto clients = the_server ? static_cast<json_int_t>(the_server->client_count()) : 0;
    json_object_set_new(object.get(), "clients", json_integer(clients));
    return object;
}

static void gobi_act(const fault &alone)
{
    the_server->act(alone);
}

static constexpr const char *gobi_markers[] = {"cellmodem_is_gobi", nullptr};

const sim_family gobi_family = {
    .name = "gobi",
    .summary = "LTE, UMTS or CDMA modem, QMI on /var/qmux_connect_socket",
    .markers = gobi_markers,
    .start = gobi_start,
    .stop = gobi_stop,
    .merge_state = gobi_merge_state,
    .dump_state = gobi_dump_state,
    .act = gobi_act,
    .has_qmi_proxy = true,
};
