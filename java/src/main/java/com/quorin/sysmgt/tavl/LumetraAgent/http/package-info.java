/** A small web server on the one of the JDK: routes, contents, problems, who may ask. */
package com.quorin.sysmgt.tavl.LumetraAgent.http;
