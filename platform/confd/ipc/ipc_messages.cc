// One description of each record, as its members in the order of their bytes, read by the writer and the
// reader below. Members of an own record type or a list of one are described by that type.
#include "platform/confd/ipc/ipc_messages.h"

#include <tuple>
#include <type_traits>

template <typename Record>
constexpr int layout = 0;  // each record has a specialisation

template <>
constexpr auto layout<t_ipc_error> = std::tuple(&t_ipc_error::text, &t_ipc_error::printed_bytes);
template <>
constexpr auto layout<t_ipc_hello> = std::tuple(&t_ipc_hello::version, &t_ipc_hello::conn,
                                                &t_ipc_hello::daemon, &t_ipc_hello::daemon_id,
                                                &t_ipc_hello::flags, &t_ipc_hello::pid);
template <>
constexpr auto layout<t_ipc_challenge> = std::tuple(&t_ipc_challenge::challenge);
template <>
constexpr auto layout<t_ipc_proof> = std::tuple(&t_ipc_proof::proof);
template <>
constexpr auto layout<t_ipc_welcome> = std::tuple(&t_ipc_welcome::connection_id);
template <>
constexpr auto layout<t_ipc_start_session> = std::tuple(&t_ipc_start_session::db,
                                                        &t_ipc_start_session::flags);
template <>
constexpr auto layout<t_ipc_path> = std::tuple(&t_ipc_path::path);
template <>
constexpr auto layout<t_ipc_value_reply> = std::tuple(&t_ipc_value_reply::value);
template <>
constexpr auto layout<t_ipc_count> = std::tuple(&t_ipc_count::count);
template <>
constexpr auto layout<t_ipc_set_elem> = std::tuple(&t_ipc_set_elem::path, &t_ipc_set_elem::value);
template <>
constexpr auto layout<t_ipc_phase> = std::tuple(&t_ipc_phase::phase, &t_ipc_phase::flags);
template <>
constexpr auto layout<t_ipc_trigger> = std::tuple(&t_ipc_trigger::ids, &t_ipc_trigger::flags);
template <>
constexpr auto layout<t_ipc_subscribe> = std::tuple(&t_ipc_subscribe::type, &t_ipc_subscribe::flags,
                                                    &t_ipc_subscribe::priority, &t_ipc_subscribe::ns,
                                                    &t_ipc_subscribe::path);
template <>
constexpr auto layout<t_ipc_batch> = std::tuple(&t_ipc_batch::type, &t_ipc_batch::flags, &t_ipc_batch::ids);
template <>
constexpr auto layout<t_ipc_diff_request> = std::tuple(&t_ipc_diff_request::id, &t_ipc_diff_request::parent,
                                                       &t_ipc_diff_request::cursor);
template <>
constexpr auto layout<t_ipc_diff_entry> = std::tuple(&t_ipc_diff_entry::op, &t_ipc_diff_entry::keypath,
                                                     &t_ipc_diff_entry::old_value,
                                                     &t_ipc_diff_entry::new_value,
                                                     &t_ipc_diff_entry::modifications);
template <>
constexpr auto layout<t_ipc_diff_page> = std::tuple(&t_ipc_diff_page::entries, &t_ipc_diff_page::next);
template <>
constexpr auto layout<t_ipc_modifications> = std::tuple(&t_ipc_modifications::id, &t_ipc_modifications::flags,
                                                        &t_ipc_modifications::path);
template <>
constexpr auto layout<t_ipc_tag_values> = std::tuple(&t_ipc_tag_values::values);
template <>
constexpr auto layout<t_ipc_sync> = std::tuple(&t_ipc_sync::type);
template <>
constexpr auto layout<t_ipc_abort> = std::tuple(&t_ipc_abort::code, &t_ipc_abort::apptag_ns,
                                                &t_ipc_abort::apptag_tag, &t_ipc_abort::reason);
template <>
constexpr auto layout<t_ipc_reg_calls> = std::tuple(&t_ipc_reg_calls::calls);
template <>
constexpr auto layout<t_ipc_reg_point> = std::tuple(&t_ipc_reg_point::point, &t_ipc_reg_point::calls);
template <>
constexpr auto layout<t_ipc_reg_notif> = std::tuple(&t_ipc_reg_notif::name, &t_ipc_reg_notif::context,
                                                    &t_ipc_reg_notif::worker_conn_id);
template <>
constexpr auto layout<t_ipc_user> = std::tuple(&t_ipc_user::usid, &t_ipc_user::name, &t_ipc_user::context);
template <>
constexpr auto layout<t_ipc_trans_init> = std::tuple(&t_ipc_trans_init::thandle, &t_ipc_trans_init::mode,
                                                     &t_ipc_trans_init::dbname, &t_ipc_trans_init::user);
template <>
constexpr auto layout<t_ipc_action_init> = std::tuple(&t_ipc_action_init::point, &t_ipc_action_init::user);
template <>
constexpr auto layout<t_ipc_worker> = std::tuple(&t_ipc_worker::worker_conn_id);
template <>
constexpr auto layout<t_ipc_thandle> = std::tuple(&t_ipc_thandle::thandle);
template <>
constexpr auto layout<t_ipc_dp_validate> = std::tuple(&t_ipc_dp_validate::thandle, &t_ipc_dp_validate::point,
                                                      &t_ipc_dp_validate::keypath, &t_ipc_dp_validate::value);
template <>
constexpr auto layout<t_ipc_dp_object> = std::tuple(&t_ipc_dp_object::thandle, &t_ipc_dp_object::point,
                                                    &t_ipc_dp_object::keypath);
template <>
constexpr auto layout<t_ipc_dp_next> = std::tuple(&t_ipc_dp_next::thandle, &t_ipc_dp_next::point,
                                                  &t_ipc_dp_next::keypath, &t_ipc_dp_next::next);
template <>
constexpr auto layout<t_ipc_dp_find_next> = std::tuple(&t_ipc_dp_find_next::thandle,
                                                       &t_ipc_dp_find_next::point,
                                                       &t_ipc_dp_find_next::keypath,
                                                       &t_ipc_dp_find_next::type, &t_ipc_dp_find_next::keys);
template <>
constexpr auto layout<t_ipc_dp_data> = std::tuple(&t_ipc_dp_data::what, &t_ipc_dp_data::values,
                                                  &t_ipc_dp_data::keys, &t_ipc_dp_data::next);
template <>
constexpr auto layout<t_ipc_dp_action> = std::tuple(&t_ipc_dp_action::point, &t_ipc_dp_action::user,
                                                    &t_ipc_dp_action::name_tag, &t_ipc_dp_action::name_ns,
                                                    &t_ipc_dp_action::keypath, &t_ipc_dp_action::params);
template <>
constexpr auto layout<t_ipc_dp_command> = std::tuple(&t_ipc_dp_command::point, &t_ipc_dp_command::user,
                                                     &t_ipc_dp_command::path, &t_ipc_dp_command::argv);
template <>
constexpr auto layout<t_ipc_dp_action_reply> = std::tuple(&t_ipc_dp_action_reply::results,
                                                          &t_ipc_dp_action_reply::printed_bytes);
template <>
constexpr auto layout<t_ipc_datetime> = std::tuple(&t_ipc_datetime::year, &t_ipc_datetime::month,
                                                   &t_ipc_datetime::day, &t_ipc_datetime::hour,
                                                   &t_ipc_datetime::min, &t_ipc_datetime::sec,
                                                   &t_ipc_datetime::micro, &t_ipc_datetime::timezone,
                                                   &t_ipc_datetime::timezone_minutes);
template <>
constexpr auto layout<t_ipc_notification> = std::tuple(&t_ipc_notification::sender_id,
                                                       &t_ipc_notification::time,
                                                       &t_ipc_notification::values);
template <>
constexpr auto layout<t_ipc_varbind> = std::tuple(&t_ipc_varbind::type, &t_ipc_varbind::name,
                                                  &t_ipc_varbind::oid, &t_ipc_varbind::value);
template <>
constexpr auto layout<t_ipc_snmp_notification> = std::tuple(&t_ipc_snmp_notification::sender_id,
                                                            &t_ipc_snmp_notification::notify_name,
                                                            &t_ipc_snmp_notification::notification,
                                                            &t_ipc_snmp_notification::varbinds);
template <>
constexpr auto layout<t_ipc_attach> = std::tuple(&t_ipc_attach::ns, &t_ipc_attach::usid,
                                                 &t_ipc_attach::thandle);
template <>
constexpr auto layout<t_ipc_maapi_path> = std::tuple(&t_ipc_maapi_path::thandle, &t_ipc_maapi_path::path);
template <>
constexpr auto layout<t_ipc_maapi_set> = std::tuple(&t_ipc_maapi_set::thandle, &t_ipc_maapi_set::path,
                                                    &t_ipc_maapi_set::value);
template <>
constexpr auto layout<t_ipc_maapi_set_text> = std::tuple(&t_ipc_maapi_set_text::thandle,
                                                         &t_ipc_maapi_set_text::path,
                                                         &t_ipc_maapi_set_text::text);
template <>
constexpr auto layout<t_ipc_maapi_next> = std::tuple(&t_ipc_maapi_next::thandle, &t_ipc_maapi_next::path,
                                                     &t_ipc_maapi_next::keys);
template <>
constexpr auto layout<t_ipc_keys> = std::tuple(&t_ipc_keys::keys);
template <>
constexpr auto layout<t_ipc_cli_write> = std::tuple(&t_ipc_cli_write::usid, &t_ipc_cli_write::text);
template <>
constexpr auto layout<t_ipc_events> = std::tuple(&t_ipc_events::mask, &t_ipc_events::heartbeat_interval_ms,
                                                 &t_ipc_events::health_check_interval_ms);
template <>
constexpr auto layout<t_ipc_event> = std::tuple(&t_ipc_event::type, &t_ipc_event::usid,
                                                &t_ipc_event::database, &t_ipc_event::text);
template <>
constexpr auto layout<t_ipc_schema_ns> = std::tuple(&t_ipc_schema_ns::hash, &t_ipc_schema_ns::module,
                                                    &t_ipc_schema_ns::prefix);
template <>
constexpr auto layout<t_ipc_schema_name> = std::tuple(&t_ipc_schema_name::tag, &t_ipc_schema_name::name);
template <>
constexpr auto layout<t_ipc_schema_label> = std::tuple(&t_ipc_schema_label::value, &t_ipc_schema_label::name);
template <>
constexpr auto layout<t_ipc_schema_type> = std::tuple(&t_ipc_schema_type::ns, &t_ipc_schema_type::name,
                                                      &t_ipc_schema_type::value_type,
                                                      &t_ipc_schema_type::labels);
template <>
constexpr auto layout<t_ipc_schema_node> = std::tuple(&t_ipc_schema_node::tag, &t_ipc_schema_node::ns,
                                                      &t_ipc_schema_node::parent, &t_ipc_schema_node::kind,
                                                      &t_ipc_schema_node::flags, &t_ipc_schema_node::type,
                                                      &t_ipc_schema_node::keys);
template <>
constexpr auto layout<t_ipc_schema> = std::tuple(&t_ipc_schema::namespaces, &t_ipc_schema::names,
                                                 &t_ipc_schema::types, &t_ipc_schema::nodes);

// ---- Writing ----

template <std::integral Integer>
static void write(IpcWriter *p_writer, Integer value)
{
    p_writer->integer(static_cast<std::make_unsigned_t<Integer>>(value), sizeof(value));
}

static void write(IpcWriter *p_writer, const std::string &value)
{
    p_writer->text(value);
}

static void write(IpcWriter *p_writer, const IpcValue &value)
{
    ipc_value_write(p_writer, value.v);
}

static void write(IpcWriter *p_writer, const IpcKeypath &value)
{
    ipc_keypath_write(p_writer, value);
}

static void write(IpcWriter *p_writer, const IpcTagValue &value)
{
    p_writer->u32(value.tag.tag);
    p_writer->u32(value.tag.ns);
    ipc_value_write(p_writer, value.value.v);
}

template <typename Element>
static void write(IpcWriter *p_writer, const std::vector<Element> &list);

template <typename Record>
requires std::is_aggregate_v<Record>
static void write(IpcWriter *p_writer, const Record &record)
{
    std::apply([&](auto... members) { (write(p_writer, record.*members), ...); }, layout<Record>);
}

template <typename Element>
static void write(IpcWriter *p_writer, const std::vector<Element> &list)
{
    p_writer->u32(static_cast<uint32_t>(list.size()));
    for (const Element &element : list)
        write(p_writer, element);
}

// ---- Reading ----

template <std::integral Integer>
static void read(IpcReader *p_reader, Integer *p_value)
{
    *p_value = static_cast<Integer>(p_reader->integer(sizeof(Integer)));
}

static void read(IpcReader *p_reader, std::string *p_value)
{
    *p_value = p_reader->text();
}

static void read(IpcReader *p_reader, IpcValue *p_value)
{
    *p_value = ipc_value_read(p_reader);
}

static void read(IpcReader *p_reader, IpcKeypath *p_value)
{
    *p_value = ipc_keypath_read(p_reader);
}

static void read(IpcReader *p_reader, IpcTagValue *p_value)
{
    p_value->tag.tag = p_reader->u32();
    p_value->tag.ns = p_reader->u32();
    p_value->value = ipc_value_read(p_reader);
}

template <typename Element>
static void read(IpcReader *p_reader, std::vector<Element> *p_list);

template <typename Record>
requires std::is_aggregate_v<Record>
static void read(IpcReader *p_reader, Record *p_record)
{
    std::apply([&](auto... members) { (read(p_reader, &(p_record->*members)), ...); }, layout<Record>);
}

// Grows with what has been read, not with what was announced.
template <typename Element>
static void read(IpcReader *p_reader, std::vector<Element> *p_list)
{
    uint32_t count = p_reader->count(1);
    p_list->clear();
    for (uint32_t i = 0; i < count && !p_reader->failed(); i++)
        read(p_reader, &p_list->emplace_back());
}

// ---- Whole bodies ----

template <typename Message>
std::vector<uint8_t> ipc_encode(const Message &message)
{
    IpcWriter writer;
    write(&writer, message);
    return writer.take();
}

template <typename Message>
bool ipc_decode(std::span<const uint8_t> bytes, Message *p_message)
{
    IpcReader reader(bytes);
    read(&reader, p_message);
    return !reader.failed() && reader.at_end();
}

#define IPC_RECORD(record)                                                                                   \
    template std::vector<uint8_t> ipc_encode(const record &);                                                \
    template bool ipc_decode(std::span<const uint8_t>, record *);

IPC_RECORD(t_ipc_error)
IPC_RECORD(t_ipc_hello)
IPC_RECORD(t_ipc_challenge)
IPC_RECORD(t_ipc_proof)
IPC_RECORD(t_ipc_welcome)
IPC_RECORD(t_ipc_start_session)
IPC_RECORD(t_ipc_path)
IPC_RECORD(t_ipc_value_reply)
IPC_RECORD(t_ipc_count)
IPC_RECORD(t_ipc_set_elem)
IPC_RECORD(t_ipc_phase)
IPC_RECORD(t_ipc_trigger)
IPC_RECORD(t_ipc_subscribe)
IPC_RECORD(t_ipc_batch)
IPC_RECORD(t_ipc_diff_request)
IPC_RECORD(t_ipc_diff_entry)
IPC_RECORD(t_ipc_diff_page)
IPC_RECORD(t_ipc_modifications)
IPC_RECORD(t_ipc_tag_values)
IPC_RECORD(t_ipc_sync)
IPC_RECORD(t_ipc_abort)
IPC_RECORD(t_ipc_reg_calls)
IPC_RECORD(t_ipc_reg_point)
IPC_RECORD(t_ipc_reg_notif)
IPC_RECORD(t_ipc_user)
IPC_RECORD(t_ipc_trans_init)
IPC_RECORD(t_ipc_action_init)
IPC_RECORD(t_ipc_worker)
IPC_RECORD(t_ipc_thandle)
IPC_RECORD(t_ipc_dp_validate)
IPC_RECORD(t_ipc_dp_object)
IPC_RECORD(t_ipc_dp_next)
IPC_RECORD(t_ipc_dp_find_next)
IPC_RECORD(t_ipc_dp_data)
IPC_RECORD(t_ipc_dp_action)
IPC_RECORD(t_ipc_dp_command)
IPC_RECORD(t_ipc_dp_action_reply)
IPC_RECORD(t_ipc_datetime)
IPC_RECORD(t_ipc_notification)
IPC_RECORD(t_ipc_varbind)
IPC_RECORD(t_ipc_snmp_notification)
IPC_RECORD(t_ipc_attach)
IPC_RECORD(t_ipc_maapi_path)
IPC_RECORD(t_ipc_maapi_set)
IPC_RECORD(t_ipc_maapi_set_text)
IPC_RECORD(t_ipc_maapi_next)
IPC_RECORD(t_ipc_keys)
IPC_RECORD(t_ipc_cli_write)
IPC_RECORD(t_ipc_events)
IPC_RECORD(t_ipc_event)
IPC_RECORD(t_ipc_schema_ns)
IPC_RECORD(t_ipc_schema_name)
IPC_RECORD(t_ipc_schema_label)
IPC_RECORD(t_ipc_schema_type)
IPC_RECORD(t_ipc_schema_node)
IPC_RECORD(t_ipc_schema)
