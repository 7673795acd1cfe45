#pragma once

#include "common/objeto_contado.h"

// Makes a report store the way its class object does.
HRESULT CreateStore(kestor::ContagemServidor& counter, REFIID iid, void** object);
