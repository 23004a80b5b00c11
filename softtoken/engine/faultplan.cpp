#include "faultplan.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QVector>

QString FaultPlan::codeText(quint32 code)
{
    return QStringLiteral("0x") + QString::number(code, 16).rightJustified(8, QLatin1Char('0')).toUpper();
}

bool FaultPlan::mentions(const char *function) const
{
    const QLatin1String name(function);
    for (const Entry &e : entries)
        if (e.function == name)
            return true;
    return false;
}

bool FaultPlan::consume(const char *function, Entry *used, bool *changed)
{
    const QLatin1String name(function);
    QVector<bool> standing(entries.size(), false);
    for (int i = 0; i < entries.size(); ++i) {
        if (entries[i].function == name && entries[i].skip > 0) {
            --entries[i].skip;
            standing[i] = true;
            if (changed)
                *changed = true;
        }
    }
    for (int pass = 0; pass < 2; ++pass) {
        const bool wantLie = pass == 1;
        for (int i = 0; i < entries.size(); ++i) {
            Entry &e = entries[i];
            if (e.function != name || e.sizeLie != wantLie || standing[i])
                continue;
            *used = e;
            if (e.remaining > 0 && --e.remaining == 0)
                entries.removeAt(i);
            return true;
        }
    }
    return false;
}

QByteArray FaultPlan::toJson() const
{
    QJsonArray list;
    for (const Entry &e : entries) {
        QJsonObject o{{"function", e.function}, {"remaining", e.remaining}};
        if (e.skip > 0)
            o.insert("skip", e.skip);
        if (e.sizeLie)
            o.insert("sizeDelta", e.sizeDelta);
        else
            o.insert("code", codeText(e.code));
        list.append(o);
    }
    return QJsonDocument(QJsonObject{{"entries", list}}).toJson(QJsonDocument::Indented);
}

bool FaultPlan::fromJson(const QByteArray &json, FaultPlan *out)
{
    const QJsonDocument doc = QJsonDocument::fromJson(json);
    if (!doc.isObject())
        return false;
    FaultPlan plan;
    for (const QJsonValue &v : doc.object().value("entries").toArray()) {
        const QJsonObject o = v.toObject();
        Entry e;
        e.function = o.value("function").toString();
        e.remaining = o.value("remaining").toInt(UntilCleared);
        e.skip = o.value("skip").toInt(0);
        if (o.contains("sizeDelta")) {
            e.sizeLie = true;
            e.sizeDelta = o.value("sizeDelta").toInt();
        } else {
            bool ok = false;
            e.code = o.value("code").toString().toUInt(&ok, 16);
            if (!ok)
                return false;
        }
        if (e.function.isEmpty() || e.remaining == 0)
            return false;
        plan.entries.append(e);
    }
    *out = plan;
    return true;
}
