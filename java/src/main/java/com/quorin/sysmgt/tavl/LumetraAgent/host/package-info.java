/** The program, and the run of the agent in it. */
package com.quorin.sysmgt.tavl.LumetraAgent.host;
