#include "skfresult.h"

#include <QByteArray>

#include <cstdio>
#include <cstring>

#include "skf/skfapi.h"

namespace {

// Texts of SAR_FAIL .. SAR_REACH_MAX_CONTAINER_COUNT, indexed by the code's
// low bits minus one.
const char *const kStandardTexts[] = {
    "fail",                   // 0x0A000001
    "异常错误",               // 0x0A000002
    "不支持的服务",           // 0x0A000003
    "文件操作错误",           // 0x0A000004
    "无效的句柄",             // 0x0A000005
    "无效的参数",             // 0x0A000006
    "读文件错误",             // 0x0A000007
    "写文件错误",             // 0x0A000008
    "名称长度错误",           // 0x0A000009
    "密钥用途错误",           // 0x0A00000A
    "模的长度错误",           // 0x0A00000B
    "未初始化",               // 0x0A00000C
    "对象错误",               // 0x0A00000D
    "内存错误",               // 0x0A00000E
    "超时",                   // 0x0A00000F
    "输入数据长度错误",       // 0x0A000010
    "输入数据错误",           // 0x0A000011
    "生成随机数错误",         // 0x0A000012
    "HASH对象错误",           // 0x0A000013
    "HASH运算错误",           // 0x0A000014
    "产生RSA密钥错误",        // 0x0A000015
    "RSA密钥模长错误",        // 0x0A000016
    "CSP服务导入公钥错误",    // 0x0A000017
    "RSA加密错误",            // 0x0A000018
    "RSA解密错误",            // 0x0A000019
    "HASH值不相等",           // 0x0A00001A
    "未发现证书密钥",         // 0x0A00001B
    "未发现证书",             // 0x0A00001C
    "对象未导出",             // 0x0A00001D
    "解密时做补丁错误",       // 0x0A00001E
    "MAC长度错误",            // 0x0A00001F
    "缓冲区不足",             // 0x0A000020
    "密钥类型错误",           // 0x0A000021
    "无事件错误",             // 0x0A000022
    "设备已移除",             // 0x0A000023
    "密码错误",               // 0x0A000024
    "密钥盘锁定",             // 0x0A000025
    "密码无效",               // 0x0A000026
    "密码长度错误",           // 0x0A000027
    "用户已经登录",           // 0x0A000028
    "没有初始化用户口令",     // 0x0A000029
    "PIN类型错误",            // 0x0A00002A
    "应用名称无效",           // 0x0A00002B
    "应用已经存在",           // 0x0A00002C
    "用户没有登录",           // 0x0A00002D
    "应用不存在",             // 0x0A00002E
    "文件已经存在",           // 0x0A00002F
    "存储空间不足",           // 0x0A000030
    "文件不存在",             // 0x0A000031
    "已达到最大可管理容器数", // 0x0A000032
};

struct SystemText
{
    quint32 code;
    const char *text;
};

// The system's own codes. The old-PIN length code 0x0C000039 has no words
// on purpose: only the new-PIN rule is worded.
const SystemText kSystemTexts[] = {
    {TW_ERR_SECURITY_STATE, "安全状态不满足"},
    {TW_ERR_OFFSET_BEYOND_FILE, "指针移到超过文件长度"},
    {TW_ERR_CONTAINER_NOT_EXIST, "容器不存在"},
    {TW_ERR_CONTAINER_EXISTS, "容器已存在"},
    {TW_ERR_DEVAUTH_LOCKED, "设备认证锁定"},
    {TW_ERR_ECC_ENCRYPT, "ECC加密错误"},
    {TW_ERR_NEW_PIN_LEN, "新密码位数过多或过少"},
};

const char kUnknownText[] = "未知的错误";

// Room for the longest text with its NUL; callers' buffers must hold it.
const size_t kMaxTextSize = 64;

} // namespace

const char *SkfResult::text(quint32 code, bool *known)
{
    const quint32 count = sizeof(kStandardTexts) / sizeof(kStandardTexts[0]);
    const char *found = nullptr;
    if (code >= SAR_FAIL && code < SAR_FAIL + count) {
        found = kStandardTexts[code - SAR_FAIL];
    } else {
        for (const SystemText &row : kSystemTexts) {
            if (row.code == code) {
                found = row.text;
                break;
            }
        }
    }
    if (known)
        *known = found != nullptr;
    return found ? found : kUnknownText;
}

void SkfResult::print(const char *tag, quint32 code, char *msg)
{
    bool known = false;
    const char *words = text(code, &known);
    if (msg) {
        const size_t length = qMin(std::strlen(words), kMaxTextSize - 1);
        std::memcpy(msg, words, length);
        msg[length] = '\0';
    }
    if (!known)
        return;
    const QByteArray line = QByteArray(tag) + words + ' ';
    std::printf("%s\n", line.constData());
}
