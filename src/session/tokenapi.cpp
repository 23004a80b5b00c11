#include "tokenapi.h"

TokenApi::~TokenApi() = default;

void TokenApi::attach(const DEVHANDLE *dev, const HAPPLICATION *app)
{
    m_dev = dev;
    m_app = app;
}
