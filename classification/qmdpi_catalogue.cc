// Look-ups and walks.
#include "classification/qmdpi.h"
#include "classification/qmdpi_private.h"

qmdpi_signature *qmdpi_bundle_signature_get_byid(qmdpi_bundle *bundle, int id)
{
    if (qmdpi_bundle_engine(bundle) == nullptr) {
        qmdpi_fail(QMDPI_EINVAL);
        return nullptr;
    }
    auto found = bundle->by_id.find(id);
    if (found == bundle->by_id.end()) {
        qmdpi_fail(QMDPI_ENOENT);
        return nullptr;
    }
    return found->second;
}

qmdpi_signature *qmdpi_bundle_signature_get_byname(qmdpi_bundle *bundle, const char *name)
{
    if (qmdpi_bundle_engine(bundle) == nullptr || name == nullptr) {
        qmdpi_fail(QMDPI_EINVAL);
        return nullptr;
    }
    auto found = bundle->by_name.find(name);
    if (found == bundle->by_name.end()) {
        qmdpi_fail(QMDPI_ENOENT);
        return nullptr;
    }
    return found->second;
}

int qmdpi_signature_id_get(qmdpi_signature *signature)
{
    if (qmdpi_signature_lives(signature))
        return signature->id;
    qmdpi_fail(QMDPI_EINVAL);
    return 0;
}

static const char *text_of(const qmdpi_signature *p_signature, std::string qmdpi_signature::*p_member)
{
    if (qmdpi_signature_lives(p_signature))
        return (p_signature->*p_member).c_str();
    qmdpi_fail(QMDPI_EINVAL);
    return nullptr;
}

const char *qmdpi_signature_name_get(qmdpi_signature *signature)
{
    return text_of(signature, &qmdpi_signature::name);
}

const char *qmdpi_signature_longname_get(qmdpi_signature *signature)
{
    return text_of(signature, &qmdpi_signature::longname);
}

const char *qmdpi_signature_family_get(qmdpi_signature *signature)
{
    return text_of(signature, &qmdpi_signature::family);
}

const char *qmdpi_attr_name_get(const qmdpi_attr *attr)
{
    if (attr != nullptr)
        return attr->name.c_str();
    qmdpi_fail(QMDPI_EINVAL);
    return nullptr;
}

int qmdpi_bundle_signature_foreach(qmdpi_bundle *bundle, f_qmdpi_signature callback, void *arg)
{
    if (qmdpi_bundle_engine(bundle) == nullptr || callback == nullptr)
        return qmdpi_fail(QMDPI_EINVAL);
    for (qmdpi_signature &signature : bundle->content.signatures)
        callback(bundle, &signature, arg);
    return QMDPI_SUCCESS;
}

int qmdpi_bundle_attr_foreach(qmdpi_bundle *bundle, const char *signature_name, f_qmdpi_attr callback,
                              void *arg)
{
    if (callback == nullptr)
        return qmdpi_fail(QMDPI_EINVAL);
    const qmdpi_signature *p_signature = qmdpi_bundle_signature_get_byname(bundle, signature_name);
    if (p_signature == nullptr)
        return qmdpi_error_get();
    for (const qmdpi_attr &attr : p_signature->attrs)
        callback(bundle, signature_name, &attr, arg);
    return QMDPI_SUCCESS;
}
