#include "lab/ttmd/ttm_record.h"

#include "lab/peers/peer_bytes.h"

#include <algorithm>

static constexpr uint8_t record_version = 1;
static constexpr size_t at_size = 6;
static constexpr size_t ipv4_size = 4;
static constexpr size_t locator_rest = 20;  // 0 up to the locator's fixed size

// ---- Decoding ----

// Null, or what is wrong.
static const char *name_read(t_peer_reader *p_reader, t_ttm_name *p_name)
{
    p_name->ip_version = peer_read_u8(p_reader);
    p_name->color = peer_read_u8(p_reader);
    p_name->encap = peer_read_u8(p_reader);
    if (!peer_read_zeros(p_reader, 1))
        return "a reserved byte of the locator's name is not 0";
    t_peer_bytes address = peer_read_bytes(p_reader, p_name->address.size());
    std::copy(address.begin(), address.end(), p_name->address.begin());
    if (p_name->ip_version == 6)
        return nullptr;
    auto is_set = [](uint8_t byte) { return byte != 0; };
    if (p_name->ip_version != 4 ||
        std::any_of(p_name->address.begin() + ipv4_size, p_name->address.end(), is_set))
        return "the locator's address is neither of IPv4 nor of IPv6";
    return nullptr;
}

static const char *attributes_read(t_peer_reader *p_reader, t_ttm_attributes *p_attributes)
{
    p_attributes->flags = peer_read_u64(p_reader);
    p_attributes->preference = peer_read_u32(p_reader);
    p_attributes->weight = peer_read_u32(p_reader);
    p_attributes->site = peer_read_u32(p_reader);
    p_attributes->version = peer_read_u32(p_reader);
    p_attributes->generation = peer_read_u32(p_reader);
    p_attributes->carrier = peer_read_u8(p_reader);
    p_attributes->restricted = peer_read_u8(p_reader);
    p_attributes->border = peer_read_u8(p_reader);
    p_attributes->stale = peer_read_u8(p_reader);
    p_attributes->group_count = peer_read_u16(p_reader);
    p_attributes->installed = peer_read_u8(p_reader);
    p_attributes->last_resort = peer_read_u8(p_reader);
    for (uint32_t &group : p_attributes->groups)
        group = peer_read_u32(p_reader);
    p_attributes->loss = peer_read_u32(p_reader);
    p_attributes->latency = peer_read_u32(p_reader);
    p_attributes->jitter = peer_read_u32(p_reader);
    p_attributes->last_resort_hold = peer_read_u32(p_reader);
    return p_attributes->group_count > TTM_RECORD_MAX_GROUPS ? "too many groups" : nullptr;
}

static const char *path_read(t_peer_reader *p_reader, t_ttm_path *p_path)
{
    p_path->local_index = static_cast<int32_t>(peer_read_u32(p_reader));
    p_path->border_index = static_cast<int32_t>(peer_read_u32(p_reader));
    p_path->mtu = peer_read_u16(p_reader);
    p_path->label_count = peer_read_u8(p_reader);
    if (!peer_read_zeros(p_reader, 1))
        return "a reserved byte of a path is not 0, or the paths are cut";
    for (uint32_t &label : p_path->labels)
        label = peer_read_u32(p_reader);
    p_path->sla_bitmap = peer_read_u32(p_reader);
    return p_path->label_count > TTM_RECORD_MAX_LABELS ? "too many labels" : nullptr;
}

// All but the paths.
static const char *locator_fixed_read(t_peer_reader *p_reader, t_ttm_locator *p_locator)
{
    p_locator->epoch = peer_read_u32(p_reader);
    if (const char *fault = name_read(p_reader, &p_locator->name))
        return fault;
    p_locator->origin = peer_read_u8(p_reader);
    p_locator->status = peer_read_u8(p_reader);
    p_locator->path_count = peer_read_u8(p_reader);
    p_locator->bfd = peer_read_u8(p_reader);
    p_locator->index = static_cast<int32_t>(peer_read_u32(p_reader));
    p_locator->label = peer_read_u32(p_reader);
    if (const char *fault = attributes_read(p_reader, &p_locator->attributes))
        return fault;
    p_locator->last_resort = peer_read_u8(p_reader);
    if (!peer_read_zeros(p_reader, 3))
        return "reserved bytes of the locator are not 0";
    p_locator->last_resort_hold = peer_read_u32(p_reader);
    if (!peer_read_zeros(p_reader, locator_rest))
        return "the locator's last bytes are not 0";
    return p_locator->path_count > TTM_RECORD_MAX_PATHS ? "too many paths" : nullptr;
}

static const char *locator_read(t_peer_reader *p_reader, t_ttm_locator *p_locator)
{
    const char *fault = locator_fixed_read(p_reader, p_locator);
    for (size_t i = 0; fault == nullptr && i < p_locator->path_count; i++)
        fault = path_read(p_reader, &p_locator->paths[i]);
    return fault;
}

static const char *header_read(t_peer_reader *p_reader, t_ttm_record *p_record)
{
    size_t size = p_reader->rest.size();
    if (peer_read_u8(p_reader) != record_version)
        return "the version is not 1";
    p_record->type = static_cast<e_ttm_record_type>(peer_read_u8(p_reader));
    p_record->family = static_cast<e_ttm_record_family>(peer_read_u8(p_reader));
    if (p_record->family > TTM_RECORD_IPV6)
        return "the address family is not one of locators";
    if (!peer_read_zeros(p_reader, 1))
        return "a reserved byte of the header is not 0";
    p_record->client = peer_read_u16(p_reader);
    return peer_read_u16(p_reader) != size ? "the size in the header is not the record's" : nullptr;
}

static const char *body_read(t_peer_reader *p_reader, t_ttm_record *p_record)
{
    if (p_record->type == TTM_RECORD_TLOC_ADD || p_record->type == TTM_RECORD_TLOC_DELETE)
        return locator_read(p_reader, &p_record->locator);
    if (p_record->type != TTM_RECORD_REGISTER)
        return "the type is unknown";
    p_record->announce = peer_read_u8(p_reader);
    p_record->originate = peer_read_u8(p_reader);
    return peer_read_zeros(p_reader, 2) ? nullptr : "reserved bytes of the registration are not 0";
}

bool ttm_record_decode(t_peer_bytes bytes, t_ttm_record *p_record, std::string *p_reason)
{
    t_peer_reader reader = {.rest = bytes, .is_short = false};
    t_ttm_record record = {};
    const char *fault = header_read(&reader, &record);
    if (fault == nullptr)
        fault = body_read(&reader, &record);
    if (reader.is_short)
        fault = "the record is cut";
    else if (fault == nullptr && !reader.rest.empty())
        fault = "bytes behind the record";
    if (fault != nullptr) {
        *p_reason = fault;
        return false;
    }
    *p_record = record;
    return true;
}

// ---- Encoding ----

static void name_write(std::vector<uint8_t> *p_bytes, const t_ttm_name &name)
{
    peer_write_u8(p_bytes, name.ip_version);
    peer_write_u8(p_bytes, name.color);
    peer_write_u8(p_bytes, name.encap);
    peer_write_zeros(p_bytes, 1);
    peer_write_bytes(p_bytes, name.address);
}

static void attributes_write(std::vector<uint8_t> *p_bytes, const t_ttm_attributes &attributes)
{
    peer_write_u64(p_bytes, attributes.flags);
    peer_write_u32(p_bytes, attributes.preference);
    peer_write_u32(p_bytes, attributes.weight);
    peer_write_u32(p_bytes, attributes.site);
    peer_write_u32(p_bytes, attributes.version);
    peer_write_u32(p_bytes, attributes.generation);
    peer_write_u8(p_bytes, attributes.carrier);
    peer_write_u8(p_bytes, attributes.restricted);
    peer_write_u8(p_bytes, attributes.border);
    peer_write_u8(p_bytes, attributes.stale);
    peer_write_u16(p_bytes, attributes.group_count);
    peer_write_u8(p_bytes, attributes.installed);
    peer_write_u8(p_bytes, attributes.last_resort);
    for (uint32_t group : attributes.groups)
        peer_write_u32(p_bytes, group);
    peer_write_u32(p_bytes, attributes.loss);
    peer_write_u32(p_bytes, attributes.latency);
    peer_write_u32(p_bytes, attributes.jitter);
    peer_write_u32(p_bytes, attributes.last_resort_hold);
}

static void path_write(std::vector<uint8_t> *p_bytes, const t_ttm_path &path)
{
    peer_write_u32(p_bytes, static_cast<uint32_t>(path.local_index));
    peer_write_u32(p_bytes, static_cast<uint32_t>(path.border_index));
    peer_write_u16(p_bytes, path.mtu);
    peer_write_u8(p_bytes, path.label_count);
    peer_write_zeros(p_bytes, 1);
    for (uint32_t label : path.labels)
        peer_write_u32(p_bytes, label);
    peer_write_u32(p_bytes, path.sla_bitmap);
}

static void locator_write(std::vector<uint8_t> *p_bytes, const t_ttm_locator &locator)
{
    peer_write_u32(p_bytes, locator.epoch);
    name_write(p_bytes, locator.name);
    peer_write_u8(p_bytes, locator.origin);
    peer_write_u8(p_bytes, locator.status);
    peer_write_u8(p_bytes, locator.path_count);
    peer_write_u8(p_bytes, locator.bfd);
    peer_write_u32(p_bytes, static_cast<uint32_t>(locator.index));
    peer_write_u32(p_bytes, locator.label);
    attributes_write(p_bytes, locator.attributes);
    peer_write_u8(p_bytes, locator.last_resort);
    peer_write_zeros(p_bytes, 3);
    peer_write_u32(p_bytes, locator.last_resort_hold);
    peer_write_zeros(p_bytes, locator_rest);
    for (size_t i = 0; i < locator.path_count; i++)
        path_write(p_bytes, locator.paths[i]);
}

std::vector<uint8_t> ttm_record_encode(const t_ttm_record &record)
{
    std::vector<uint8_t> bytes;
    peer_write_u8(&bytes, record_version);
    peer_write_u8(&bytes, record.type);
    peer_write_u8(&bytes, record.family);
    peer_write_zeros(&bytes, 1);
    peer_write_u16(&bytes, record.client);
    peer_write_u16(&bytes, 0);  // the size, below
    if (record.type == TTM_RECORD_REGISTER) {
        peer_write_u8(&bytes, record.announce);
        peer_write_u8(&bytes, record.originate);
        peer_write_zeros(&bytes, 2);
    } else {
        locator_write(&bytes, record.locator);
    }
    bytes[at_size] = static_cast<uint8_t>(bytes.size() >> 8);
    bytes[at_size + 1] = static_cast<uint8_t>(bytes.size());
    return bytes;
}
