/** The events of this process: where they arrive, those that were, how many there were. */
package com.quorin.sysmgt.tavl.LumetraAgent.events;
