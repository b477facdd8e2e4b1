// Any bytes are framed, decoded and read within their bounds or refused. What was decoded can be
// encoded again and gives the same message; no answer makes a request hold more than it brought.

#include "qmi/messages.h"
#include "qmi/qmux.h"
#include "qmi/questions.h"

#include <cstdlib>

constexpr uint32_t some_handle = 1;

// ---- the link's part: every request is answered with the bytes of this run

static struct {
    std::span<const uint8_t> tlvs;
    uint32_t code;
} answer;

uint32_t qmi_send_wait(uint32_t, const qmi_request &, std::span<const uint8_t>,
                       std::vector<uint8_t> &response)
{
    response.assign(answer.tlvs.begin(), answer.tlvs.end());
    return answer.code;
}

void qmi_send_wait_all(uint32_t handle, std::span<qmi_exchange> exchanges)
{
    for (qmi_exchange &each : exchanges)
        each.code = qmi_send_wait(handle, each.request, each.tlvs, each.response);
}

static void expect(bool holds)
{
    if (!holds)
        abort();
}

static void expect_inside(std::span<const uint8_t> whole, std::span<const uint8_t> part)
{
    expect(part.empty() || (part.data() >= whole.data() &&
                            part.data() + part.size() <= whole.data() + whole.size()));
}

// ---- frames

static bool same_message(const qmux_message &a, const qmux_message &b)
{
    return a.from_modem == b.from_modem && a.service == b.service && a.client_id == b.client_id &&
           a.kind == b.kind && a.transaction == b.transaction && a.id == b.id &&
           std::equal(a.tlvs.begin(), a.tlvs.end(), b.tlvs.begin(), b.tlvs.end());
}

static void read_frame(std::span<const uint8_t> frame)
{
    qmux_message message, again;
    std::vector<uint8_t> encoded;
    if (qmux_decode(frame, message) != 0)
        return;
    expect_inside(frame, message.tlvs);
    expect(qmux_encode(message, encoded) == 0 && encoded.size() == frame.size());
    expect(qmux_decode(encoded, again) == 0 && same_message(message, again));
}

// As the link takes them out of a stream.
static void read_stream(std::span<const uint8_t> bytes)
{
    size_t size = 0;
    while (qmux_frame_size(bytes, size) == 0 && size != 0 && size <= bytes.size()) {
        read_frame(bytes.first(size));
        bytes = bytes.subspan(size);
    }
}

// ---- TLVs and the readers of answers

static void read_tlvs(std::span<const uint8_t> tlvs)
{
    std::span<const uint8_t> rest = tlvs;
    tlv item;
    int taken = 0;
    while ((taken = tlv_next(rest, item)) == 1) {
        expect_inside(tlvs, item.value);
        expect(tlv_find(tlvs, item.type).has_value());
    }
    expect(taken == tlv_check(tlvs));
}

static void read_texts()
{
    std::string text;
    if (qmi_dms_get_manufacturer(some_handle, text) == qmi_ok)
        expect(text.size() < answer.tlvs.size());
    if (qmi_dms_get_model(some_handle, text) == qmi_ok)
        expect(text.size() < answer.tlvs.size());
}

static void read_numbers()
{
    uint8_t state = 0;
    qmi_pin_states pins;
    qmi_started_network started;
    (void)qmi_wds_get_packet_status(some_handle, state);
    (void)qmi_dms_get_uim_state(some_handle, state);
    (void)qmi_dms_get_pin_status(some_handle, pins);
    const uint32_t code = qmi_wds_start_network(some_handle, {}, started);
    expect(code == qmi_ok ? !started.end_reason : started.session == qmi_no_session);
}

static void read_lists()
{
    qmi_serving_system system;
    if (qmi_nas_get_serving_system(some_handle, system) == qmi_ok)
        expect(system.radios.items.size() < answer.tlvs.size());
    qmi_stored_sms message;
    if (qmi_wms_read(some_handle, {}, message) == qmi_ok)
        expect(message.pdu.items.size() < answer.tlvs.size());
    std::vector<qmi_listed_sms> messages;
    if (qmi_wms_list(some_handle, {}, messages) == qmi_ok)
        expect(messages.size() < answer.tlvs.size());
}

// What the records ask, all at once.
static void read_questions()
{
    uint8_t byte = 0;
    int8_t bearer = 0;
    uint16_t word = 0;
    std::string text;
    qmi_runtime_settings settings;
    qmi_mip_profile mip;
    qmi_capabilities capabilities;
    qmi_firmware_revisions revisions;
    qmi_voice_numbers numbers;
    qmi_serial_numbers serials;
    qmi_images images;
    qmi_active_bands bands;
    qmi_system_selection selection;
    qmi_signal_info signal;
    qmi_question questions[] = {
        qmi_wds_runtime_settings(settings),  qmi_wds_data_bearer(bearer),
        qmi_wds_active_mip_profile(byte),    qmi_wds_mip_profile(byte, mip),
        qmi_dms_capabilities(capabilities),  qmi_dms_firmware_revisions(revisions),
        qmi_dms_voice_numbers(numbers),      qmi_dms_serial_numbers(serials),
        qmi_dms_prl_version(word),           qmi_dms_imsi(text),
        qmi_dms_firmware_preference(images), qmi_nas_active_bands(bands),
        qmi_nas_system_selection(selection), qmi_nas_signal_info(signal)};
    qmi_ask_all(some_handle, questions);
    for (const qmi_question &each : questions)
        expect(each.code == answer.code || each.code == qmi_modem_error);
    expect(capabilities.radios.items.size() < answer.tlvs.size() + 1);
    expect(images.preferred.items.size() < answer.tlvs.size() + 1);
    expect(bands.bands.items.size() < answer.tlvs.size() + 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::span<const uint8_t> bytes{data, size};
    read_stream(bytes);
    read_tlvs(bytes);
    for (const uint32_t code : {uint32_t{qmi_ok}, qmi_modem_error + uint32_t{14}}) {
        answer = {bytes, code};
        read_texts();
        read_numbers();
        read_lists();
        read_questions();
    }
    return 0;
}
