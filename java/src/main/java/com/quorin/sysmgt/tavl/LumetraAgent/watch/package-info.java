/** Follows what the library publishes and keeps it ready for all who look. */
package com.quorin.sysmgt.tavl.LumetraAgent.watch;
