#include "qcollector/CollectorMsg.h"

#include <QtEndian>

#include <cstdio>

namespace collector {

CollectorMsg CollectorMsg::key(qint32 id, qint32 value)
{
    CollectorMsg msg;
    msg.type = MSG_KEY;
    msg.id = id;
    msg.value = value;
    return msg;
}

CollectorMsg CollectorMsg::shaft(qint32 id, qint32 delta)
{
    CollectorMsg msg;
    msg.type = MSG_SHAFT;
    msg.id = id;
    msg.delta = delta;
    return msg;
}

CollectorMsg CollectorMsg::gpi(qint32 id, qint32 value)
{
    CollectorMsg msg;
    msg.type = MSG_GPI;
    msg.id = id;
    msg.value = value;
    return msg;
}

void CollectorMsg::pack(char **buffer, int *length) const
{
    char *out = new char[WireSize];
    qToBigEndian<quint32>(type, out);
    qToBigEndian<qint32>(id, out + 4);
    qToBigEndian<qint32>(value, out + 8);
    qToBigEndian<qint32>(delta, out + 12);
    *buffer = out;
    *length = WireSize;
}

bool CollectorMsg::unpack(const char *buffer, int size)
{
    if (size != WireSize) {
        printf("collector: CollectorMsg::unpack wrong message size %d\n", size);
        fflush(stdout);
        return false;
    }
    type = qFromBigEndian<quint32>(buffer);
    id = qFromBigEndian<qint32>(buffer + 4);
    value = qFromBigEndian<qint32>(buffer + 8);
    delta = qFromBigEndian<qint32>(buffer + 12);
    return true;
}

} // namespace collector
