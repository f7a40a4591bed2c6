#include "transport/transport.h"
