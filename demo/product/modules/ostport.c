// Nothing but itself. The demo's journal says that it isn't wanted.
#include "demo.h"

MODULE_DESCRIPTION("Ostrel demo: a module that nobody asked for");

static int __init ostport_init(void)
{
	return 0;
}

static void __exit ostport_exit(void)
{
}

module_init(ostport_init);
module_exit(ostport_exit);
